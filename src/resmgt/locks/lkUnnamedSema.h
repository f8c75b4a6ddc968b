// Forwards to resmgt/locks/lkNamedSema.h.
#pragma once

#include "resmgt/locks/lkNamedSema.h"
