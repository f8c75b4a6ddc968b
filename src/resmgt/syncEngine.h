// Threads paced by beats.
#pragma once

#include "resmgt/syncEngine/seSourceClock.h"
#include "resmgt/syncEngine/seSourceProtocol.h"
