// Forwards to resmgt/threadExtensions/mtContainer.h.
#pragma once

#include "resmgt/threadExtensions/mtContainer.h"
