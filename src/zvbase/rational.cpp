#include "zvbase/rational.h"

#include "zvbase/failures.h"
#include "zvbase/wideProduct.private.h"

#include <limits>
#include <numeric>
#include <ostream>

namespace Zv {

namespace {

std::uint64_t magnitude(std::int64_t value)
{
    auto const bits = static_cast<std::uint64_t>(value);
    return value < 0 ? 0 - bits : bits;
}

} // namespace

Rational::Rational(std::int64_t numerator, std::int64_t denominator)
{
    setValue(numerator, denominator);
}

void Rational::setValue(std::int64_t numerator, std::int64_t denominator)
{
    ZV_ASSERT(denominator != 0);
    std::uint64_t const divisor = std::gcd(magnitude(numerator), magnitude(denominator));
    std::uint64_t const reduced = magnitude(numerator) / divisor;
    std::uint64_t const below = magnitude(denominator) / divisor;
    bool const isNegative = (numerator < 0) != (denominator < 0);

    constexpr std::uint64_t LARGEST = std::numeric_limits<std::int64_t>::max();
    bool const fits = reduced <= LARGEST + (isNegative ? 1 : 0) && below <= LARGEST;
    ZV_ASSERT(fits);
    _numerator = static_cast<std::int64_t>(isNegative ? 0 - reduced : reduced);
    _denominator = static_cast<std::int64_t>(below);
}

std::strong_ordering operator<=>(Rational const &left, Rational const &right) noexcept
{
    using Product = WideProduct<4>;
    return Product(left._numerator) * right._denominator <=>
           Product(right._numerator) * left._denominator;
}

std::ostream &operator<<(std::ostream &stream, Rational const &value)
{
    return stream << value.getNumerator() << '/' << value.getDenominator();
}

} // namespace Zv
