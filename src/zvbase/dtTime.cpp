#include "zvbase/dtTime.h"

#include "zvbase/failures.h"

#include <ostream>

namespace Zv {

namespace {

__extension__ using Wide = __int128;

/// Seconds as a whole number and a fraction. The numerator of the undivided fraction has up to 127
/// bits.
struct Seconds
{
    explicit Seconds(DtTime const &time)
    {
        Wide const numerator = Wide{time.getCount()} * time.getRate().getDenominator();
        denominator = time.getRate().getNumerator();
        whole = numerator / denominator;
        rest = numerator % denominator;
        if (rest < 0) {
            rest += denominator;
            --whole;
        }
    }

    Wide whole;
    Wide rest;
    Wide denominator;
};

} // namespace

DtTime::DtTime(DtTimeIndex count, Rational const &rate) : _count(count), _rate(rate)
{
    ZV_ASSERT(rate > Rational());
}

double DtTime::getSeconds() const noexcept
{
    return static_cast<double>(_count) / _rate.getDouble();
}

bool operator==(DtTime const &left, DtTime const &right) noexcept
{
    return (left <=> right) == 0;
}

std::strong_ordering operator<=>(DtTime const &left, DtTime const &right) noexcept
{
    Seconds const l(left);
    Seconds const r(right);
    if (l.whole != r.whole)
        return l.whole <=> r.whole;
    return l.rest * r.denominator <=> r.rest * l.denominator;
}

std::ostream &operator<<(std::ostream &stream, DtTime const &time)
{
    return stream << time.getCount() << " at " << time.getRate();
}

std::ostream &operator<<(std::ostream &stream, DtTimeMark const &mark)
{
    return stream << mark.getPosition() << ", at " << mark.getReference();
}

} // namespace Zv
