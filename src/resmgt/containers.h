// All iterators that hide the container (applications).
#pragma once

#include "resmgt/containers/iterator.h"
#include "resmgt/containers/iteratorEx.h"
#include "resmgt/containers/iteratorSTL.h"
