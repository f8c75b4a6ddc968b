// What stands on threads: queues between them, requests and groups, pools and alarms.
#pragma once

#include "resmgt/threadExtensions/mtAlarmHandle.h"
#include "resmgt/threadExtensions/mtAlarmManager.h"
#include "resmgt/threadExtensions/mtContainer.h"
#include "resmgt/threadExtensions/mtContainer.imp.h"
#include "resmgt/threadExtensions/mtContainerObserver.h"
#include "resmgt/threadExtensions/mtGroupCommand.h"
#include "resmgt/threadExtensions/mtRequestBase.h"
#include "resmgt/threadExtensions/mtRequestMgr.h"
#include "resmgt/threadExtensions/mtRequestTag.h"
#include "resmgt/threadExtensions/mtTask.h"
#include "resmgt/threadExtensions/mtThreadPool.h"
