#include "zvbase/rnNumRecUniformRng.h"

namespace Zv {

double RnNumRecUniformRng::eval() noexcept
{
    // A Weyl sequence through a mixing function whose every bit depends on every bit (Steele, Lea,
    // Flood: "Fast splittable pseudorandom number generators", 2014).
    _state += 0x9E3779B97F4A7C15;
    std::uint64_t bits = _state;
    bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9;
    bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EB;
    bits ^= bits >> 31;
    return static_cast<double>(bits >> 11) * 0x1p-53;
}

} // namespace Zv
