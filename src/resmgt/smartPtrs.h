// All smart pointers: sole owners, shared owners and pointers without ownership (applications).
#pragma once

#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcBasePtr.h"
#include "resmgt/smartPtrs/rcProxy.h"
#include "resmgt/smartPtrs/rcPvtEngPtr.h"
#include "resmgt/smartPtrs/rcShdEngPtr.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "resmgt/smartPtrs/unownedObjPtr.h"
#include "zvbase/objPtr.h"
#include "zvbase/rcEx.h"
