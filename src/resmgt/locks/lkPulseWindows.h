// Forwards to resmgt/locks/lkPulse.h.
#pragma once

#include "resmgt/locks/lkPulse.h"
