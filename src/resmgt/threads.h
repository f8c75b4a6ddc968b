// Umbrella header of threads, thread-specific data and thread priorities (applications).
#pragma once

#include "resmgt/threads/mtCapture.h"
#include "resmgt/threads/mtEx.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtSpecificData.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/mtThreadStatus.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityEx.h"
#include "resmgt/threads/priorityMgr.h"
#include "resmgt/threads/rtPriorities.h"
