#include "resmgt/memoryBuffers/mbAlignment.h"

#include "resmgt/memoryBuffers/mbEx.h"
#include "zvbase/failures.h"

namespace Zv {

namespace {

void checkPow2(std::uint64_t value)
{
    if (value == 0)
        ZV_THROW(MbEx::ExInvalidArgument, "Zero is not a power of two");
    MbAlignment::checkPow2Minus1(value - 1);
}

std::uint64_t checkedMask(std::uint64_t mask)
{
    MbAlignment::checkPow2Minus1(mask);
    return mask;
}

} // namespace

MbAlignment::MbAlignment(std::uint64_t alignmentMask, std::uint64_t offsetMask,
                         std::uint64_t offsetPattern)
    : _alignmentMask(checkedMask(alignmentMask)),
      _offsetMask(checkedMask(offsetMask)),
      _offsetPattern(offsetPattern)
{}

void MbAlignment::setAlignmentMask(std::uint64_t alignmentMask)
{
    _alignmentMask = checkedMask(alignmentMask);
}

void MbAlignment::setOffsetMask(std::uint64_t offsetMask)
{
    _offsetMask = checkedMask(offsetMask);
}

bool MbAlignment::isAligned(std::uint64_t address) const noexcept
{
    return (address & _alignmentMask) == 0 && (address & _offsetMask) == pattern();
}

std::uint64_t MbAlignment::roundUpToAlignment(std::uint64_t address) const
{
    std::uint64_t const within = candidate(address);
    if (within >= address)
        return within;
    std::uint64_t const next = within + (_offsetMask | _alignmentMask) + 1;
    if (next < address)
        ZV_THROW(MbEx::ExRangeError, "Can't roundUpToAlignment() because of wrap-around");
    return next;
}

std::uint64_t MbAlignment::roundDownToAlignment(std::uint64_t address) const
{
    std::uint64_t const within = candidate(address);
    if (within <= address)
        return within;
    std::uint64_t const previous = within - (_offsetMask | _alignmentMask) - 1;
    if (previous > address)
        ZV_THROW(MbEx::ExRangeError, "Can't roundDownToAlignment() because of wrap-around");
    return previous;
}

std::uint64_t MbAlignment::getRoundUpMax(std::uint64_t multiple) const
{
    checkPow2(multiple);
    return ((_alignmentMask | _offsetMask) & -multiple) | pattern();
}

std::uint64_t MbAlignment::getRoundDownMax(std::uint64_t multiple) const
{
    checkPow2(multiple);
    std::uint64_t const low = _alignmentMask | _offsetMask;
    return low & ((low - pattern() + 1) | -multiple);
}

void MbAlignment::compound(MbAlignment const &other)
{
    std::uint64_t const alignmentMask = _alignmentMask | other._alignmentMask;
    std::uint64_t const offsetMask = _offsetMask | other._offsetMask;
    std::uint64_t const common = ~alignmentMask & _offsetMask & other._offsetMask;
    if ((_offsetPattern & common) != (other._offsetPattern & common))
        ZV_THROW(MbEx::ExRangeError, "Incompatible offsets.");
    _offsetPattern = offsetMask > other._offsetMask ? _offsetPattern : other._offsetPattern;
    _alignmentMask = alignmentMask;
    _offsetMask = offsetMask;
}

void MbAlignment::checkPow2Minus1(std::uint64_t value)
{
    while (value & 1)
        value >>= 1;
    if (value != 0)
        ZV_THROW(MbEx::ExInvalidArgument, "Argument is not a power of 2 minus 1");
}

} // namespace Zv
