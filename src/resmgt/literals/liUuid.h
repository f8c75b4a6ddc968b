// Identifiers.
#pragma once

#include "resmgt/literals/liString.h"
#include "resmgt/literals/liUuidTypes.h"
#include "resmgt/literals/liUuidUtil.h"

#include <compare>
#include <cstdint>
#include <functional>

namespace Zv {

/// An identifier of 128 bits. One object is for one thread at a time. Where the platform refuses, its operations throw
/// `LiUuidEx::ExInternalError`.
class ZVRESMGT_EXPORT LiUuid
{
public:
    enum CreateEnum
    {
        CREATE
    };

    /// Nil.
    LiUuid();
    /// A new identifier.
    explicit LiUuid(CreateEnum);
    /// Throws `LiUuidEx::ExInvalidUuidString` where the text is none.
    explicit LiUuid(LiString const &text);

    /// Becomes a new identifier.
    void create();
    /// Becomes nil.
    void clear();
    bool isNil() const;
    bool equal(LiUuid const &other) const;
    /// -1, 0 or 1.
    int compare(LiUuid const &other) const;
    std::uint64_t hash() const;
    explicit operator std::uint64_t() const { return hash(); }
    LiString toString() const;
    /// Throws `LiUuidEx::ExInvalidUuidString` and stays as it was where the text is none.
    void fromString(LiString const &text);

    friend bool operator==(LiUuid const &left, LiUuid const &right)
    {
        return left.compare(right) == 0;
    }
    friend std::strong_ordering operator<=>(LiUuid const &left, LiUuid const &right)
    {
        return left.compare(right) <=> 0;
    }

private:
    LiUuidTypes::Uuid _uuid;
};

} // namespace Zv

template <>
struct std::hash<Zv::LiUuid>
{
    std::size_t operator()(Zv::LiUuid const &uuid) const
    {
        return static_cast<std::size_t>(uuid.hash());
    }
};
