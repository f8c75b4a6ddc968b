// Random numbers.
#pragma once

#include "zvbase/export.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

/// Uniform random numbers, the same row from the same seed. A value: a copy goes on with the same row. One thread at
/// a time. Not for secrets.
class ZVBASE_EXPORT RnNumRecUniformRng
{
public:
    static constexpr std::uint64_t DEFAULT_SEED = 0x9E3779B97F4A7C15;

    explicit RnNumRecUniformRng(std::uint64_t seed = DEFAULT_SEED) noexcept : _state(seed) {}

    /// The next number, in [0, 1), in steps of 2^-53.
    double eval() noexcept;

private:
    std::uint64_t _state;
};

} // namespace Zv
