// The plain form of an identifier.
#pragma once

#include <cstdint>

namespace Zv {

class LiUuidTypes
{
public:
    /// The 16 bytes of RFC 4122, by fields.
    struct Uuid
    {
        std::uint32_t data1;
        std::uint16_t data2;
        std::uint16_t data3;
        std::uint8_t data4[8];
    };

    LiUuidTypes() = delete;
};

} // namespace Zv
