// Strings of the names that an XML text repeats.
#pragma once

#include "resmgt/literals/liString.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace Zv {

/// Keeps the strings of names that were asked for, because a text repeats few names. Keeps a
/// limited number of them.
class XmlNames
{
public:
    XmlNames();

    /// Returns the string of a name. The reference is valid until the next call.
    LiString const &get(std::string_view name);

private:
    /// A name that was asked for before. It is near the place that its bytes determine.
    struct Known
    {
        std::uint64_t head = 0;
        std::size_t length = 0; // 0 for none
        std::optional<LiString> name;
    };
    static constexpr std::size_t PLACES = 256;
    static constexpr std::size_t NEAR = 4;

    std::vector<Known> _names;
};

} // namespace Zv
