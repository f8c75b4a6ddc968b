// Umbrella header of queues between threads, requests, thread pools and alarms (applications).
#pragma once

#include "resmgt/threadExtensions/mtAlarmHandle.h"
#include "resmgt/threadExtensions/mtAlarmManager.h"
#include "resmgt/threadExtensions/mtContainer.h"
#include "resmgt/threadExtensions/mtContainer.imp.h"
#include "resmgt/threadExtensions/mtRequestMgr.h"
#include "resmgt/threadExtensions/mtTask.h"
#include "resmgt/threadExtensions/mtThreadPool.h"
