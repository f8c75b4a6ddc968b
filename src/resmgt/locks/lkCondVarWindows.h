// Forwards to resmgt/locks/lkCondVar.h.
#pragma once

#include "resmgt/locks/lkCondVar.h"
