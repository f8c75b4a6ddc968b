// Locks, wait objects and the singleton.
#pragma once

#include "resmgt/locks/lkCounter.h"
#include "resmgt/locks/lkEx.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkLock.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkMutexAttr.h"
#include "resmgt/locks/lkRecLock.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/locks/lkThreadId.h"
#include "resmgt/locks/mtUtil.h"
