// Iterators over the vectors of the standard protocols.
#pragma once

#include "resmgt/containers/iterator.h"
#include "resmgt/containers/iteratorSTL.h"
#include "zvbase/containers.h"

namespace Zv::Detail {

/// Whoever uses the iterator keeps the owner of the vector.
template <class T>
ConstIterator<T> iteratorOver(Vector<T> const &vector)
{
    return ConstIterator<T>(new ConstIteratorSTL<Vector<T>>(&vector));
}

template <class T>
ConstIterator<T> endIteratorOver(Vector<T> const &vector)
{
    ConstIterator<T> iterator = iteratorOver(vector);
    iterator.end();
    return iterator;
}

} // namespace Zv::Detail
