// Threads paced by beats.
#pragma once

#include "resmgt/syncEngine/seClientThread.h"
#include "resmgt/syncEngine/seSourceClock.h"
#include "resmgt/syncEngine/seSourceProtocol.h"
#include "resmgt/syncEngine/seSyncEngine.h"
