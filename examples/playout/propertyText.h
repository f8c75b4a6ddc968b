// Properties' values as text.
#pragma once

#include <resmgt/deviceManager.h>

#include <optional>
#include <string>

/// The whole text as a number, or nothing. Infinities are none.
std::optional<double> parseNumber(std::string const &text);

/// Sets a property that holds a number. Throws `std::invalid_argument` for a text that is no value for it,
/// `Zv::DevMgrEx::PropertyInvalidType` for a property that holds something else, and what setting throws.
void setPropertyText(Zv::RCShdPtr<Zv::DevMDPropertyAny> const &property, std::string const &text);
