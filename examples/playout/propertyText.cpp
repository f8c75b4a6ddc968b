#include "propertyText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <stdexcept>

using namespace Zv;

namespace {

/// Sets a property that holds a `T`. Returns false if it holds something else.
template <class T>
bool setNumber(RCShdPtr<DevMDPropertyAny> const &any, std::string const &text)
{
    auto const property = rcDynamicCast<DevMDProperty<T>>(any);
    if (property.isNull())
        return false;
    auto const number = parseNumber(text);
    T value = {};
    if (number)
        value = static_cast<T>(std::clamp(*number, double(std::numeric_limits<T>::lowest()),
                                          double(std::numeric_limits<T>::max())));
    if (!number || static_cast<double>(value) != *number)
        throw std::invalid_argument("\"" + text + "\" is no value for it");
    property->set(value);
    return true;
}

} // namespace

std::optional<double> parseNumber(std::string const &text)
{
    double number = 0;
    auto const end = text.data() + text.size();
    auto const [last, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || last != end || !std::isfinite(number))
        return std::nullopt;
    return number;
}

void setPropertyText(RCShdPtr<DevMDPropertyAny> const &property, std::string const &text)
{
    if (!setNumber<double>(property, text) && !setNumber<float>(property, text) &&
        !setNumber<int>(property, text) && !setNumber<unsigned>(property, text))
        ZV_THROW(DevMgrEx::PropertyInvalidType, property->getName().getChars());
}
