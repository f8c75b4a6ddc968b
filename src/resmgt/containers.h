// Iterators that hide the container.
#pragma once

#include "resmgt/containers/iterator.h"
#include "resmgt/containers/iteratorEx.h"
#include "resmgt/containers/iteratorImp.h"
#include "resmgt/containers/iteratorSTL.h"
