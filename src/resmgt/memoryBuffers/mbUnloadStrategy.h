// Which buffer has to give its memory up.
#pragma once

#include "resmgt/export.h"

#include <cstddef>
#include <iosfwd>

namespace Zv {

class MbBufferImp;

/// The buffers that a pool manager may unload now, those that are loaded and not locked, and the choice among them. Owned
/// by its manager, which calls it under its mutex: a strategy has no lock and blocks nobody. Every operation but `dump`
/// stands in the path of a load and takes constant time on average.
class ZVRESMGT_EXPORT MbUnloadStrategy
{
public:
    virtual ~MbUnloadStrategy() noexcept(false);

    virtual char const *getName() const = 0;
    /// The buffer, which is not in the set, joins it. Must not fail if `reserve` has made room for it: an unlock would
    /// throw what it throws, and leave the buffer locked.
    virtual void insertBuffer(MbBufferImp *buffer) = 0;
    /// The buffer leaves the set. Must not fail, and must do nothing if the buffer is not in the set: that happens after
    /// `insertBuffer` has failed.
    virtual void removeBuffer(MbBufferImp *buffer) = 0;
    /// A buffer of the set, which stays in it. Not for an empty set.
    virtual MbBufferImp *selectVictim() const = 0;
    virtual bool isEmpty() const = 0;
    /// For debugging: the name.
    virtual void dump(std::ostream &stream) const;
    /// Makes room for so many buffers in all; throws `std::bad_alloc`. The manager calls it before it gives a buffer its
    /// memory, so that the unlock that follows cannot fail. The base class does nothing: a strategy whose `insertBuffer`
    /// allocates must override it.
    virtual void reserve(std::size_t nbBuffers);

protected:
    MbUnloadStrategy();
    MbUnloadStrategy(MbUnloadStrategy const &);
    MbUnloadStrategy &operator=(MbUnloadStrategy const &);
};

} // namespace Zv
