#include "platform/common/uuid.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace ZvPlatform {

namespace {

constexpr std::size_t TEXT_LENGTH = 36;
constexpr std::size_t BYTES = 16;

UUID const NIL{};

/// Returns the identifier. A null pointer means the nil identifier.
UUID const &valueOf(UUID const *uuid)
{
    return uuid ? *uuid : NIL;
}

void succeed(RPC_STATUS *status)
{
    if (status)
        *status = RPC_S_OK;
}

int order(UUID const &left, UUID const &right)
{
    auto const sign = [](auto a, auto b) { return a < b ? -1 : a > b ? 1 : 0; };
    if (int const result = sign(left.Data1, right.Data1))
        return result;
    if (int const result = sign(left.Data2, right.Data2))
        return result;
    if (int const result = sign(left.Data3, right.Data3))
        return result;
    return sign(::memcmp(left.Data4, right.Data4, sizeof left.Data4), 0);
}

int digitOf(unsigned char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

/// Stores the bytes in the order in which they are written as text.
void toBytes(UUID const &uuid, unsigned char (&bytes)[BYTES])
{
    for (unsigned i = 0; i < 4; ++i)
        bytes[i] = static_cast<unsigned char>(uuid.Data1 >> 8 * (3 - i));
    for (unsigned i = 0; i < 2; ++i) {
        bytes[4 + i] = static_cast<unsigned char>(uuid.Data2 >> 8 * (1 - i));
        bytes[6 + i] = static_cast<unsigned char>(uuid.Data3 >> 8 * (1 - i));
    }
    ::memcpy(bytes + 8, uuid.Data4, sizeof uuid.Data4);
}

void fromBytes(unsigned char const (&bytes)[BYTES], UUID &uuid)
{
    uuid.Data1 = std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
                 std::uint32_t{bytes[2]} << 8 | bytes[3];
    uuid.Data2 = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
    uuid.Data3 = static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]);
    ::memcpy(uuid.Data4, bytes + 8, sizeof uuid.Data4);
}

} // namespace

void makeRandomUuid(unsigned char (&bytes)[16], UUID &uuid)
{
    // Version 4, which is made of random numbers, in the variant of RFC 4122.
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    fromBytes(bytes, uuid);
}

RPC_STATUS UuidCreateNil(UUID *uuid)
{
    *uuid = NIL;
    return RPC_S_OK;
}

int UuidIsNil(UUID *uuid, RPC_STATUS *status)
{
    succeed(status);
    return order(valueOf(uuid), NIL) == 0;
}

int UuidEqual(UUID *left, UUID *right, RPC_STATUS *status)
{
    succeed(status);
    return order(valueOf(left), valueOf(right)) == 0;
}

int UuidCompare(UUID *left, UUID *right, RPC_STATUS *status)
{
    succeed(status);
    return order(valueOf(left), valueOf(right));
}

std::uint16_t UuidHash(UUID *uuid, RPC_STATUS *status)
{
    succeed(status);
    unsigned char bytes[BYTES];
    toBytes(valueOf(uuid), bytes);
    std::uint32_t hash = 2166136261;
    for (unsigned char byte : bytes)
        hash = (hash ^ byte) * 16777619;
    return static_cast<std::uint16_t>(hash ^ hash >> 16);
}

RPC_STATUS UuidFromStringA(RPC_CSTR text, UUID *uuid)
{
    if (!text)
        return UuidCreateNil(uuid);
    unsigned char bytes[BYTES];
    std::size_t position = 0;
    for (std::size_t i = 0; i < BYTES; ++i) {
        if ((i == 4 || i == 6 || i == 8 || i == 10) && text[position++] != '-')
            return RPC_S_INVALID_STRING_UUID;
        int const high = digitOf(text[position]);
        int const low = high < 0 ? -1 : digitOf(text[position + 1]);
        if (low < 0)
            return RPC_S_INVALID_STRING_UUID;
        bytes[i] = static_cast<unsigned char>(high << 4 | low);
        position += 2;
    }
    if (text[position] != '\0')
        return RPC_S_INVALID_STRING_UUID;
    fromBytes(bytes, *uuid);
    return RPC_S_OK;
}

RPC_STATUS UuidToStringA(UUID const *uuid, RPC_CSTR *text)
{
    UUID const &value = valueOf(uuid);
    char *written = static_cast<char *>(::malloc(TEXT_LENGTH + 1));
    *text = reinterpret_cast<RPC_CSTR>(written);
    if (!written)
        return RPC_S_OUT_OF_MEMORY;
    std::uint8_t const *rest = value.Data4;
    std::snprintf(written, TEXT_LENGTH + 1, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                  value.Data1, unsigned{value.Data2}, unsigned{value.Data3}, rest[0], rest[1],
                  rest[2], rest[3], rest[4], rest[5], rest[6], rest[7]);
    return RPC_S_OK;
}

RPC_STATUS RpcStringFreeA(RPC_CSTR *text)
{
    ::free(*text);
    *text = nullptr;
    return RPC_S_OK;
}

} // namespace ZvPlatform
