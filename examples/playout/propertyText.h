// Conversion of text to numbers and property values.
#pragma once

#include <resmgt/deviceManager.h>

#include <optional>
#include <string>

/// Returns the number if the whole text is a finite number, else nothing.
std::optional<double> parseNumber(std::string const &text);

/// Sets a property that holds a number. Throws `std::invalid_argument` if the text is no value of
/// the property's type, `Zv::DevMgrEx::PropertyInvalidType` if the property does not hold a number,
/// and what `set` throws.
void setPropertyText(Zv::RCShdPtr<Zv::DevMDPropertyAny> const &property, std::string const &text);
