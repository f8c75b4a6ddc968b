// All headers of the sync engine, which paces threads by beats (applications).
#pragma once

#include "resmgt/syncEngine/seClientThread.h"
#include "resmgt/syncEngine/seSourceProtocol.h"
#include "resmgt/syncEngine/seSyncEngine.h"
