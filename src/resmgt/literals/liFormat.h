// Values as arguments of std::format (applications).
#pragma once

#include "resmgt/literals/liDate.h"
#include "resmgt/literals/liString.h"
#include "resmgt/literals/liTimestamp.h"
#include "resmgt/literals/liUuid.h"

#include <version>

#if __has_include(<format>) && defined(__cpp_lib_format)

#include <format>
#include <string_view>

/// A string is formatted as a `std::string_view` of all its bytes.
template <>
struct std::formatter<Zv::LiString> : std::formatter<std::string_view>
{
    template <class Context>
    auto format(Zv::LiString const &string, Context &context) const
    {
        return std::formatter<std::string_view>::format(string, context);
    }
};

/// An identifier is formatted as the text of `toString`.
template <>
struct std::formatter<Zv::LiUuid> : std::formatter<std::string_view>
{
    template <class Context>
    auto format(Zv::LiUuid const &uuid, Context &context) const
    {
        return std::formatter<std::string_view>::format(uuid.toString(), context);
    }
};

/// A date is formatted as the text of `toString` in universal time.
template <>
struct std::formatter<Zv::LiDate> : std::formatter<std::string_view>
{
    template <class Context>
    auto format(Zv::LiDate const &date, Context &context) const
    {
        return std::formatter<std::string_view>::format(date.toString(Zv::OsDateTypes::UNIVERSAL),
                                                        context);
    }
};

/// A timestamp is formatted as its seconds, a `double`.
template <>
struct std::formatter<Zv::LiTimestamp> : std::formatter<double>
{
    template <class Context>
    auto format(Zv::LiTimestamp const &timestamp, Context &context) const
    {
        return std::formatter<double>::format(timestamp.getSeconds(), context);
    }
};

#endif
