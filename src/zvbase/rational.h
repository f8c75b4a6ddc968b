// Fractions.
#pragma once

#include "zvbase/export.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <ostream>

namespace Zv {

/// A fraction in lowest terms with a positive denominator. A value; comparisons are exact, whatever the numbers.
class ZVBASE_EXPORT Rational
{
public:
    /// 0/1.
    constexpr Rational() noexcept = default;
    /// As `setValue`.
    Rational(std::int64_t numerator, std::int64_t denominator);

    /// Fails the assertions "denominator != 0" and, where the reduced fraction does not fit 64 bits, "fits".
    void setValue(std::int64_t numerator, std::int64_t denominator);

    constexpr std::int64_t getNumerator() const noexcept { return _numerator; }
    constexpr std::int64_t getDenominator() const noexcept { return _denominator; }
    constexpr double getDouble() const noexcept
    {
        return static_cast<double>(_numerator) / static_cast<double>(_denominator);
    }

    friend bool operator==(Rational const &, Rational const &) noexcept = default;
    ZVBASE_EXPORT friend std::strong_ordering operator<=>(Rational const &,
                                                          Rational const &) noexcept;

private:
    std::int64_t _numerator = 0;
    std::int64_t _denominator = 1;
};

/// "30000/1001".
ZVBASE_EXPORT std::ostream &operator<<(std::ostream &, Rational const &);

} // namespace Zv
