// Any buffer goes.
#pragma once

#include "resmgt/memoryBuffers/mbUnloadIndex.h"
#include "resmgt/memoryBuffers/mbUnloadStrategy.h"
#include "zvbase/rnNumRecUniformRng.h"

#include <cstdint>

namespace Zv {

/// Selects one of the buffers at random, each as likely as the others; asked twice, it selects anew. For working sets
/// that are walked in circles, where the buffer used least recently is the one needed next.
///
/// A copy has the same buffers and goes on with the same row of random numbers.
class ZVRESMGT_EXPORT MbUnloadRandom : public MbUnloadStrategy
{
public:
    /// Reserves room for so many buffers; more are welcome.
    explicit MbUnloadRandom(int capacity);
    MbUnloadRandom(MbUnloadRandom const &);
    MbUnloadRandom &operator=(MbUnloadRandom const &);
    ~MbUnloadRandom() noexcept(false) override;

    /// "MbUnloadRandom"
    char const *getName() const override;
    void insertBuffer(MbBufferImp *buffer) override;
    void removeBuffer(MbBufferImp *buffer) override;
    MbBufferImp *selectVictim() const override;
    bool isEmpty() const override;
    /// The name, then the buffers by their positions, then the positions by their buffers.
    void dump(std::ostream &stream) const override;
    void reserve(std::size_t nbBuffers) override;

private:
    Vector<MbBufferImp *> _container;
    MbUnloadIndex<std::uint64_t> _index;
    RnNumRecUniformRng mutable _generator;
};

} // namespace Zv
