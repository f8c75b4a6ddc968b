// Where the data of a buffer may start.
#pragma once

#include "resmgt/export.h"

#include <cstdint>

namespace Zv {

/// What an address must look like: a power-of-two alignment and, where wanted, a fixed pattern in its low bits, so that
/// data can be placed at an offset from a boundary.
///
/// With the alignment mask M, the offset mask O and the pattern P, an address x is aligned when `x & M` is 0 and `x & O`
/// is `P & ~M & O`. Both masks are a power of two minus one; 0 asks for nothing. `MbAlignment(127, 0, 0)` asks for
/// multiples of 128, `MbAlignment(0, 255, 16)` for 16 behind a multiple of 256.
///
/// A plain value: one thread at a time changes it, nothing blocks. An operation that throws changes nothing.
class ZVRESMGT_EXPORT MbAlignment
{
public:
    /// Throws `MbEx::ExInvalidArgument` where a mask is no power of two minus one.
    MbAlignment(std::uint64_t alignmentMask, std::uint64_t offsetMask, std::uint64_t offsetPattern);

    std::uint64_t getAlignmentMask() const noexcept { return _alignmentMask; }
    std::uint64_t getOffsetMask() const noexcept { return _offsetMask; }
    std::uint64_t getOffsetPattern() const noexcept { return _offsetPattern; }
    /// Throws `MbEx::ExInvalidArgument` like the constructor.
    void setAlignmentMask(std::uint64_t alignmentMask);
    /// Throws `MbEx::ExInvalidArgument` like the constructor.
    void setOffsetMask(std::uint64_t offsetMask);
    /// Any pattern will do: only its bits within the offset mask and above the alignment mask count.
    void setOffsetPattern(std::uint64_t offsetPattern) noexcept { _offsetPattern = offsetPattern; }

    bool isAligned(std::uint64_t address) const noexcept;
    /// The first aligned address from `address` on. Throws `MbEx::ExRangeError` where there is none below 2^64.
    std::uint64_t roundUpToAlignment(std::uint64_t address) const;
    /// The last aligned address up to `address`. Throws `MbEx::ExRangeError` where there is none.
    std::uint64_t roundDownToAlignment(std::uint64_t address) const;
    /// The greatest distance, in bytes, by which rounding up moves an address that is a multiple of `multiple`. Throws
    /// `MbEx::ExInvalidArgument` where that is no power of two.
    std::uint64_t getRoundUpMax(std::uint64_t multiple) const;
    /// The same for rounding down.
    std::uint64_t getRoundDownMax(std::uint64_t multiple) const;

    /// Makes this alignment ask for what `other` asks for as well. Throws `MbEx::ExRangeError` where the two patterns
    /// contradict each other.
    void compound(MbAlignment const &other);

    /// Throws `MbEx::ExInvalidArgument` unless `value` is a power of two minus one; 0 is.
    static void checkPow2Minus1(std::uint64_t value);

private:
    /// The bits of the pattern that count.
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
