// Generator of uniform random numbers (applications).
#pragma once

#include "zvbase/export.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

/// Generates uniform random numbers. The same seed gives the same sequence on every platform. A
/// value: a copy continues the same sequence by itself. Not for cryptography.
///
///     Zv::RnNumRecUniformRng dice(7);
///     int const eyes = 1 + static_cast<int>(dice.eval() * 6);
///
/// **Threads**: one thread at a time.
class ZVBASE_EXPORT RnNumRecUniformRng
{
public:
    /// The seed of a generator that is constructed without one.
    static constexpr std::uint64_t DEFAULT_SEED = 0x9E3779B97F4A7C15;

    /// Starts the sequence of the seed.
    explicit RnNumRecUniformRng(std::uint64_t seed = DEFAULT_SEED) noexcept : _state(seed) {}

    /// Returns the next number, in [0, 1), a multiple of 2^-53.
    double eval() noexcept;

private:
    std::uint64_t _state;
};

} // namespace Zv
