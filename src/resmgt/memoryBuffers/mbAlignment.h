// Alignment of the data of a memory buffer (applications).
#pragma once

#include "resmgt/export.h"

#include <cstdint>

namespace Zv {

/// A condition on an address: a power-of-two alignment and, if wanted, a fixed pattern in the low
/// bits. With a pattern, data can be placed at an offset from a boundary.
///
///     MbAlignment const page(4095, 0, 0);
///     std::uint64_t const address = page.roundUpToAlignment(5000); // 8192
///
/// With the alignment mask M, the offset mask O and the pattern P, an address x is aligned if `x &
/// M` is 0 and `x & O` is `P & ~M & O`. Both masks must be a power of two minus one. A mask of 0
/// demands nothing. `MbAlignment(127, 0, 0)` demands a multiple of 128, and `MbAlignment(0, 255,
/// 16)` demands 16 bytes after a multiple of 256.
///
/// **Threads**: a value.
///
/// **Throws**: an operation that throws changes nothing.
class ZVRESMGT_EXPORT MbAlignment
{
public:
    /// Throws `MbEx::ExInvalidArgument` if a mask is no power of two minus one.
    MbAlignment(std::uint64_t alignmentMask, std::uint64_t offsetMask, std::uint64_t offsetPattern);

    std::uint64_t getAlignmentMask() const noexcept { return _alignmentMask; }
    std::uint64_t getOffsetMask() const noexcept { return _offsetMask; }
    std::uint64_t getOffsetPattern() const noexcept { return _offsetPattern; }
    /// Sets the alignment mask. Throws `MbEx::ExInvalidArgument` if it is no power of two minus
    /// one.
    void setAlignmentMask(std::uint64_t alignmentMask);
    /// Sets the offset mask. Throws `MbEx::ExInvalidArgument` if it is no power of two minus one.
    void setOffsetMask(std::uint64_t offsetMask);
    /// Sets the pattern. Only its bits within the offset mask and above the alignment mask have an
    /// effect.
    void setOffsetPattern(std::uint64_t offsetPattern) noexcept { _offsetPattern = offsetPattern; }

    /// Returns true if the address meets the condition.
    bool isAligned(std::uint64_t address) const noexcept;
    /// Returns the first aligned address from `address` on. Throws `MbEx::ExRangeError` if there is
    /// none below 2^64.
    std::uint64_t roundUpToAlignment(std::uint64_t address) const;
    /// Returns the last aligned address up to `address`. Throws `MbEx::ExRangeError` if there is
    /// none.
    std::uint64_t roundDownToAlignment(std::uint64_t address) const;
    /// Returns the greatest distance in bytes by which rounding up moves an address that is a
    /// multiple of `multiple`. Throws `MbEx::ExInvalidArgument` if `multiple` is no power of two.
    std::uint64_t getRoundUpMax(std::uint64_t multiple) const;
    /// Returns the greatest distance in bytes by which rounding down moves an address that is a
    /// multiple of `multiple`. Throws `MbEx::ExInvalidArgument` if `multiple` is no power of two.
    std::uint64_t getRoundDownMax(std::uint64_t multiple) const;

    /// Makes this alignment demand what `other` demands as well. Throws `MbEx::ExRangeError` if the
    /// two patterns contradict each other.
    void compound(MbAlignment const &other);

    /// Throws `MbEx::ExInvalidArgument` if `value` is no power of two minus one. 0 is one.
    static void checkPow2Minus1(std::uint64_t value);

private:
    /// The bits of the pattern that have an effect.
    std::uint64_t pattern() const noexcept
    {
        return _offsetPattern & ~_alignmentMask & _offsetMask;
    }
    /// The address with its low bits as they must be.
    std::uint64_t candidate(std::uint64_t address) const noexcept
    {
        return pattern() | (~(_alignmentMask | _offsetMask) & address);
    }

    std::uint64_t _alignmentMask;
    std::uint64_t _offsetMask;
    std::uint64_t _offsetPattern;
};

} // namespace Zv
