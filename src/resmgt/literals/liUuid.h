// Unique identifier of 128 bits (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string_view> // std::hash

namespace Zv {

/// Names the plain form of an identifier.
class LiUuidTypes
{
public:
    /// The 16 bytes of RFC 4122, by fields.
    struct Uuid
    {
        std::uint32_t data1;   ///< `time_low`
        std::uint16_t data2;   ///< `time_mid`
        std::uint16_t data3;   ///< `time_hi_and_version`
        std::uint8_t data4[8]; ///< `clock_seq_hi_and_reserved`, `clock_seq_low`, `node`
    };

    LiUuidTypes() = delete;
};

/// Functions of the platform on plain identifiers. Use `LiUuid` instead if you can.
///
/// **Threads**: thread-safe.
///
/// **Throws** `LiUuidEx::ExInternalError` with the name of the platform's function if the platform
/// refuses a call.
class ZVRESMGT_EXPORT LiUuidUtil
{
public:
    /// The plain form of an identifier.
    using Uuid = LiUuidTypes::Uuid;

    /// Makes the identifier nil.
    static void clear(Uuid &uuid);
    /// Makes the identifier a new one, different from all others.
    static void create(Uuid &uuid);
    /// Returns true if the identifier is nil.
    static bool isNil(Uuid const &uuid);
    /// Returns true if the identifiers are equal.
    static bool equal(Uuid const &left, Uuid const &right);
    /// Compares field by field. Returns -1, 0 or 1.
    static int compare(Uuid const &left, Uuid const &right);
    /// Returns a hash of 16 bits.
    static std::uint64_t hash(Uuid const &uuid);
    /// Reads an identifier. **Throws** `LiUuidEx::ExInvalidUuidString` if the text is none; `uuid`
    /// keeps its value then.
    static void fromString(Uuid &uuid, LiString const &text);
    /// Returns the 36 characters of the identifier, such as "6ba7b810-9dad-11d1-80b4-00c04fd430c8".
    static LiString toString(Uuid const &uuid);

    LiUuidUtil() = delete;
};

/// Unique identifier of 128 bits.
///
///     Zv::LiUuid const session(Zv::LiUuid::CREATE);
///     Zv::LiUuid const same(session.toString());
///     bool const isSame = same == session; // true
///
/// **Threads**: a value.
///
/// **Throws** `LiUuidEx::ExInternalError` if the platform refuses a call.
class ZVRESMGT_EXPORT LiUuid
{
public:
    /// Selects the constructor that creates a new identifier.
    enum CreateEnum
    {
        CREATE
    };

    /// Becomes nil.
    LiUuid();
    /// Becomes a new identifier, different from all others.
    explicit LiUuid(CreateEnum);
    /// Reads an identifier. **Throws** `LiUuidEx::ExInvalidUuidString` if the text is none.
    explicit LiUuid(LiString const &text);

    /// Becomes a new identifier, different from all others.
    void create();
    /// Becomes nil.
    void clear();
    /// Returns true if the identifier is nil.
    bool isNil() const;
    /// Returns true if the identifiers are equal.
    bool equal(LiUuid const &other) const;
    /// Compares field by field. Returns -1, 0 or 1.
    int compare(LiUuid const &other) const;
    /// Returns a hash of 16 bits. Equal identifiers have equal hashes.
    std::uint64_t hash() const;
    /// Converts to the hash.
    explicit operator std::uint64_t() const { return hash(); }
    /// Returns the 36 characters of the identifier, such as "6ba7b810-9dad-11d1-80b4-00c04fd430c8".
    LiString toString() const;
    /// Reads an identifier. **Throws** `LiUuidEx::ExInvalidUuidString` if the text is none; the
    /// identifier keeps its value then.
    void fromString(LiString const &text);

    /// Compares as `compare` does.
    friend bool operator==(LiUuid const &left, LiUuid const &right)
    {
        return left.compare(right) == 0;
    }
    /// Orders as `compare` does.
    friend std::strong_ordering operator<=>(LiUuid const &left, LiUuid const &right)
    {
        return left.compare(right) <=> 0;
    }

private:
    LiUuidTypes::Uuid _uuid;
};

} // namespace Zv

/// Agrees with `==`.
template <>
struct std::hash<Zv::LiUuid>
{
    std::size_t operator()(Zv::LiUuid const &uuid) const
    {
        return static_cast<std::size_t>(uuid.hash());
    }
};
