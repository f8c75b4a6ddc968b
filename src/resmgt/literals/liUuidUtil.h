// What the platform does with identifiers.
#pragma once

#include "resmgt/literals/liString.h"
#include "resmgt/literals/liUuidTypes.h"

#include <cstdint>

namespace Zv {

/// The platform's functions on identifiers; `LiUuid` is the value over them. Any thread. Where the platform refuses,
/// each of them throws `LiUuidEx::ExInternalError` with the name of the platform's function.
class ZVRESMGT_EXPORT LiUuidUtil
{
public:
    using Uuid = LiUuidTypes::Uuid;

    /// Makes it nil.
    static void clear(Uuid &uuid);
    /// A new identifier, unlike all others.
    static void create(Uuid &uuid);
    static bool isNil(Uuid const &uuid);
    static bool equal(Uuid const &left, Uuid const &right);
    /// -1, 0 or 1, field by field.
    static int compare(Uuid const &left, Uuid const &right);
    /// 16 bits.
    static std::uint64_t hash(Uuid const &uuid);
    /// Throws `LiUuidEx::ExInvalidUuidString` and leaves `uuid` alone where the text is none.
    static void fromString(Uuid &uuid, LiString const &text);
    /// 36 characters, for instance "6ba7b810-9dad-11d1-80b4-00c04fd430c8".
    static LiString toString(Uuid const &uuid);

    LiUuidUtil() = delete;
};

} // namespace Zv
