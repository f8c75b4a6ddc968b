#include "zvbase/dtTime.h"

#include "zvbase/failures.h"
#include "zvbase/wideProduct.private.h"

#include <ostream>

namespace Zv {

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
    Rational const &leftRate = left.getRate();
    Rational const &rightRate = right.getRate();
    if (leftRate == rightRate)
        return left.getCount() <=> right.getCount();
    // Both sides are multiplied by the numerators of both rates, which are positive.
    using Product = WideProduct<6>;
    return Product(left.getCount()) * leftRate.getDenominator() * rightRate.getNumerator() <=>
           Product(right.getCount()) * rightRate.getDenominator() * leftRate.getNumerator();
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
