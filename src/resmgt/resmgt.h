// All public headers of the library (applications).
#pragma once

#include "resmgt/containers.h"
#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"
#include "resmgt/dynamicAllocation.h"
#include "resmgt/literals.h"
#include "resmgt/locks.h"
#include "resmgt/memoryBuffers.h"
#include "resmgt/packages.h"
#include "resmgt/smartPtrs.h"
#include "resmgt/syncEngine.h"
#include "resmgt/threadExtensions.h"
#include "resmgt/threads.h"
#include "resmgt/xml.h"
