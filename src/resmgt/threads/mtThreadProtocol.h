// Forwards to resmgt/threads/mtThread.h.
#pragma once

#include "resmgt/threads/mtThread.h"
