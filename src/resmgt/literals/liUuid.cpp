#include "resmgt/literals/liUuid.h"

#include "platform/services.h"
#include "resmgt/literals/liUuidEx.h"
#include "zvbase/failures.h"

#include <bit>

namespace Zv {

namespace {

::UUID plain(LiUuidTypes::Uuid const &uuid)
{
    return std::bit_cast<::UUID>(uuid);
}

void check(RPC_STATUS status, char const *function)
{
    if (status != RPC_S_OK)
        ZV_THROW(LiUuidEx::ExInternalError, function);
}

// A string of the platform, which has to be freed even if it cannot be copied.
struct RpcString
{
    RPC_CSTR chars = nullptr;

    void free()
    {
        RPC_CSTR former = chars;
        chars = nullptr;
        check(::RpcStringFreeA(&former), "RpcStringFreeA");
    }
    ~RpcString()
    {
        if (chars)
            ::RpcStringFreeA(&chars);
    }
};

} // namespace

// ---- LiUuidUtil

void LiUuidUtil::clear(Uuid &uuid)
{
    ::UUID nil{};
    check(::UuidCreateNil(&nil), "UuidCreateNil");
    uuid = std::bit_cast<Uuid>(nil);
}

void LiUuidUtil::create(Uuid &uuid)
{
    ::UUID fresh{};
    check(::UuidCreate(&fresh), "UuidCreate");
    uuid = std::bit_cast<Uuid>(fresh);
}

bool LiUuidUtil::isNil(Uuid const &uuid)
{
    ::UUID copy = plain(uuid);
    RPC_STATUS status = RPC_S_OK;
    bool const nil = ::UuidIsNil(&copy, &status) != 0;
    check(status, "UuidIsNil");
    return nil;
}

bool LiUuidUtil::equal(Uuid const &left, Uuid const &right)
{
    ::UUID l = plain(left);
    ::UUID r = plain(right);
    RPC_STATUS status = RPC_S_OK;
    bool const same = ::UuidEqual(&l, &r, &status) != 0;
    check(status, "UuidEqual");
    return same;
}

int LiUuidUtil::compare(Uuid const &left, Uuid const &right)
{
    ::UUID l = plain(left);
    ::UUID r = plain(right);
    RPC_STATUS status = RPC_S_OK;
    int const order = ::UuidCompare(&l, &r, &status);
    check(status, "UuidCompare");
    return order;
}

std::uint64_t LiUuidUtil::hash(Uuid const &uuid)
{
    ::UUID copy = plain(uuid);
    RPC_STATUS status = RPC_S_OK;
    std::uint64_t const value = ::UuidHash(&copy, &status);
    check(status, "UuidHash");
    return value;
}

void LiUuidUtil::fromString(Uuid &uuid, LiString const &text)
{
    LiString copy(text.getChars()); // the platform takes a text that it may write to
    bool const isWhole = copy.getLength() == text.getLength(); // no zero byte in it
    ArrayPtr<char> chars(copy.releaseChars());
    ::UUID parsed{};
    if (!isWhole || ::UuidFromStringA(reinterpret_cast<RPC_CSTR>(chars.get()), &parsed) != RPC_S_OK)
        ZV_THROW(LiUuidEx::ExInvalidUuidString, text);
    uuid = std::bit_cast<Uuid>(parsed);
}

LiString LiUuidUtil::toString(Uuid const &uuid)
{
    ::UUID copy = plain(uuid);
    RpcString string;
    check(::UuidToStringA(&copy, &string.chars), "UuidToStringA");
    LiString text(reinterpret_cast<char const *>(string.chars));
    string.free();
    return text;
}

// ---- LiUuid

LiUuid::LiUuid()
{
    clear();
}

LiUuid::LiUuid(CreateEnum)
{
    create();
}

LiUuid::LiUuid(LiString const &text)
{
    fromString(text);
}

void LiUuid::create()
{
    LiUuidUtil::create(_uuid);
}

void LiUuid::clear()
{
    LiUuidUtil::clear(_uuid);
}

bool LiUuid::isNil() const
{
    return LiUuidUtil::isNil(_uuid);
}

bool LiUuid::equal(LiUuid const &other) const
{
    return LiUuidUtil::equal(_uuid, other._uuid);
}

int LiUuid::compare(LiUuid const &other) const
{
    return LiUuidUtil::compare(_uuid, other._uuid);
}

std::uint64_t LiUuid::hash() const
{
    return LiUuidUtil::hash(_uuid);
}

LiString LiUuid::toString() const
{
    return LiUuidUtil::toString(_uuid);
}

void LiUuid::fromString(LiString const &text)
{
    LiUuidUtil::fromString(_uuid, text);
}

} // namespace Zv
