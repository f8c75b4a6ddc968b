// What stands on threads: queues between them, requests and groups.
#pragma once

#include "resmgt/threadExtensions/mtContainer.h"
#include "resmgt/threadExtensions/mtContainer.imp.h"
#include "resmgt/threadExtensions/mtContainerObserver.h"
#include "resmgt/threadExtensions/mtGroupCommand.h"
#include "resmgt/threadExtensions/mtRequestBase.h"
#include "resmgt/threadExtensions/mtRequestMgr.h"
#include "resmgt/threadExtensions/mtRequestTag.h"
