// Rational numbers (applications).
#pragma once

#include "zvbase/export.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace Zv {

/// A fraction in lowest terms with a positive denominator. A value. Comparisons are exact for all
/// numbers.
///
///     Zv::Rational const rate(60000, 2002); // 30000/1001
///     bool const isSlower = rate < Zv::Rational(30, 1);
class ZVBASE_EXPORT Rational
{
public:
    /// Constructs 0/1.
    constexpr Rational() noexcept = default;
    /// Fails the assertions of `setValue`.
    Rational(std::int64_t numerator, std::int64_t denominator);

    /// Sets the value and reduces it. Fails the assertion "denominator != 0", or the assertion
    /// "fits" if the reduced fraction does not fit 64 bits.
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

/// Writes numerator and denominator, as in "30000/1001".
ZVBASE_EXPORT std::ostream &operator<<(std::ostream &, Rational const &);

} // namespace Zv
