// Iterators over the vectors that the standard protocols keep.
#pragma once

#include "resmgt/containers/iterator.h"
#include "resmgt/containers/iteratorSTL.h"
#include "zvbase/sequenceContainers.h"

namespace Zv::Detail {

/// Returns an iterator at the first element. The vector must outlive it.
template <class T>
ConstIterator<T> iteratorOver(Vector<T> const &vector)
{
    return ConstIterator<T>(new ConstIteratorSTL<Vector<T>>(&vector));
}

/// Returns an iterator behind the last element. The vector must outlive it.
template <class T>
ConstIterator<T> endIteratorOver(Vector<T> const &vector)
{
    ConstIterator<T> iterator = iteratorOver(vector);
    iterator.end();
    return iterator;
}

} // namespace Zv::Detail
