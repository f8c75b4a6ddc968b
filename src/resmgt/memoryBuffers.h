// All headers of memory buffers (applications).
#pragma once

#include "resmgt/memoryBuffers/mbAlignment.h"
#include "resmgt/memoryBuffers/mbBuffer.h"
#include "resmgt/memoryBuffers/mbBufferFactory.h"
#include "resmgt/memoryBuffers/mbBufferImp.h"
#include "resmgt/memoryBuffers/mbEx.h"
#include "resmgt/memoryBuffers/mbManager.h"
#include "resmgt/memoryBuffers/mbProtocol.h"
#include "resmgt/memoryBuffers/mbStateMachine.h"
#include "resmgt/memoryBuffers/mbUnloadStrategy.h"
