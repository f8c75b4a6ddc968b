// Exact products of 64-bit numbers, for comparisons.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>

namespace Zv {

/// A number with a sign and `Size` digits of 32 bits, the lowest first. Compilers for 32-bit
/// machines have no integers of 128 bits.
template <std::size_t Size>
class WideProduct
{
public:
    explicit WideProduct(std::int64_t value) noexcept : _isNegative(value < 0)
    {
        auto const bits = static_cast<std::uint64_t>(value);
        std::uint64_t const magnitude = _isNegative ? 0 - bits : bits;
        _digits = {static_cast<std::uint32_t>(magnitude),
                   static_cast<std::uint32_t>(magnitude >> 32)};
    }

    /// Returns the product with a positive factor. It must have no more than `Size` digits.
    WideProduct operator*(std::int64_t factor) const noexcept
    {
        auto const bits = static_cast<std::uint64_t>(factor);
        WideProduct product(_isNegative ? -1 : 0);
        product._digits = {};
        for (std::size_t place : {0, 1}) {
            std::uint64_t const digit = place == 0 ? bits & UINT32_MAX : bits >> 32;
            std::uint64_t carry = 0;
            for (std::size_t i = 0; i + place < Size; ++i) {
                carry += _digits[i] * digit + product._digits[i + place];
                product._digits[i + place] = static_cast<std::uint32_t>(carry);
                carry >>= 32;
            }
        }
        return product;
    }

    friend std::strong_ordering operator<=>(WideProduct const &left,
                                            WideProduct const &right) noexcept
    {
        if (left._isNegative != right._isNegative)
            return right._isNegative <=> left._isNegative;
        for (std::size_t i = Size; i-- != 0;)
            if (left._digits[i] != right._digits[i])
                return left._isNegative ? right._digits[i] <=> left._digits[i]
                                        : left._digits[i] <=> right._digits[i];
        return std::strong_ordering::equal;
    }

private:
    std::array<std::uint32_t, Size> _digits;
    bool _isNegative;
};

} // namespace Zv
