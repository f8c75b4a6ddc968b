#include "resmgt/literals/liUuid.h"

#include "platform/services.h"
#include "resmgt/literals/liUuidEx.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

// The linker leads the library's calls of the platform here, so that each of them can refuse.

namespace {

constexpr RPC_STATUS REFUSED = 1;

/// The function that refuses.
std::string_view refusing;
int nbFreed = 0;

bool refuses(char const *function)
{
    return refusing == function;
}

} // namespace

#define ZV_WRAP(Result, Name, Symbol, Parameters, Arguments, Refuse)                               \
    extern "C" Result __real_##Symbol Parameters;                                                  \
    extern "C" Result __wrap_##Symbol Parameters                                                   \
    {                                                                                              \
        if (!refuses(#Name))                                                                       \
            return __real_##Symbol Arguments;                                                      \
        Refuse;                                                                                    \
    }

#define ZV_WRAP_STATUS(Name, Symbol, Parameters, Arguments)                                        \
    ZV_WRAP(RPC_STATUS, Name, Symbol, Parameters, Arguments, return REFUSED)

ZV_WRAP_STATUS(UuidCreate, _ZN10ZvPlatform10UuidCreateEPNS_4UUIDE, (::UUID * u), (u))
ZV_WRAP_STATUS(UuidCreateNil, _ZN10ZvPlatform13UuidCreateNilEPNS_4UUIDE, (::UUID * u), (u))
ZV_WRAP_STATUS(UuidFromStringA, _ZN10ZvPlatform15UuidFromStringAEPhPNS_4UUIDE,
               (RPC_CSTR text, ::UUID *u), (text, u))
ZV_WRAP_STATUS(UuidToStringA, _ZN10ZvPlatform13UuidToStringAEPKNS_4UUIDEPPh,
               (::UUID const *u, RPC_CSTR *text), (u, text))
ZV_WRAP(int, UuidIsNil, _ZN10ZvPlatform9UuidIsNilEPNS_4UUIDEPl, (::UUID * u, RPC_STATUS *s), (u, s),
        *s = REFUSED;
        return 0)
ZV_WRAP(int, UuidEqual, _ZN10ZvPlatform9UuidEqualEPNS_4UUIDES1_Pl,
        (::UUID * u, ::UUID *v, RPC_STATUS *s), (u, v, s), *s = REFUSED;
        return 0)
ZV_WRAP(int, UuidCompare, _ZN10ZvPlatform11UuidCompareEPNS_4UUIDES1_Pl,
        (::UUID * u, ::UUID *v, RPC_STATUS *s), (u, v, s), *s = REFUSED;
        return 0)
ZV_WRAP(std::uint16_t, UuidHash, _ZN10ZvPlatform8UuidHashEPNS_4UUIDEPl, (::UUID * u, RPC_STATUS *s),
        (u, s), *s = REFUSED;
        return 0)

extern "C" RPC_STATUS __real__ZN10ZvPlatform14RpcStringFreeAEPPh(RPC_CSTR *text);
extern "C" RPC_STATUS __wrap__ZN10ZvPlatform14RpcStringFreeAEPPh(RPC_CSTR *text)
{
    ++nbFreed;
    RPC_STATUS const status = __real__ZN10ZvPlatform14RpcStringFreeAEPPh(text);
    return refuses("RpcStringFreeA") ? REFUSED : status;
}

namespace ZvTest {

using namespace Zv;

namespace {

class LiUuidUtilTest : public testing::Test
{
protected:
    ~LiUuidUtilTest() override { refusing = {}; }

    template <class Action>
    static std::string reasonWhenRefused(char const *function, Action action)
    {
        refusing = function;
        std::string reason = "nothing thrown";
        try {
            action();
        } catch (LiUuidEx::ExInternalError const &error) {
            reason = error.getReason();
        }
        refusing = {};
        return reason;
    }

    LiUuidUtil::Uuid _uuid{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
};

TEST_F(LiUuidUtilTest, NamesTheFunctionOfThePlatformThatRefused)
{
    EXPECT_EQ(reasonWhenRefused("UuidCreateNil", [&] { LiUuidUtil::clear(_uuid); }),
              "Call to function UuidCreateNil() failed.");
    EXPECT_EQ(reasonWhenRefused("UuidCreate", [&] { LiUuidUtil::create(_uuid); }),
              "Call to function UuidCreate() failed.");
    EXPECT_EQ(reasonWhenRefused("UuidIsNil", [&] { LiUuidUtil::isNil(_uuid); }),
              "Call to function UuidIsNil() failed.");
    EXPECT_EQ(reasonWhenRefused("UuidEqual", [&] { LiUuidUtil::equal(_uuid, _uuid); }),
              "Call to function UuidEqual() failed.");
    EXPECT_EQ(reasonWhenRefused("UuidCompare", [&] { LiUuidUtil::compare(_uuid, _uuid); }),
              "Call to function UuidCompare() failed.");
    EXPECT_EQ(reasonWhenRefused("UuidHash", [&] { LiUuidUtil::hash(_uuid); }),
              "Call to function UuidHash() failed.");
    EXPECT_EQ(reasonWhenRefused("UuidToStringA", [&] { LiUuidUtil::toString(_uuid); }),
              "Call to function UuidToStringA() failed.");
    EXPECT_STREQ(LiUuidUtil::toString(_uuid).getChars(), "00000001-0002-0003-0405-060708090a0b");
}

TEST_F(LiUuidUtilTest, GivesThePlatformsStringBack)
{
    nbFreed = 0;
    LiUuidUtil::toString(_uuid);
    EXPECT_EQ(nbFreed, 1);
    EXPECT_EQ(reasonWhenRefused("RpcStringFreeA", [&] { LiUuidUtil::toString(_uuid); }),
              "Call to function RpcStringFreeA() failed.");
    EXPECT_EQ(nbFreed, 2);
}

TEST_F(LiUuidUtilTest, ARefusedTextIsTheTextsFault)
{
    refusing = "UuidFromStringA";
    LiString const text("00000000-0000-0000-0000-000000000000");
    EXPECT_THROW(LiUuidUtil::fromString(_uuid, text), LiUuidEx::ExInvalidUuidString);
    refusing = {};
    EXPECT_EQ(_uuid.data1, 1U);
    LiUuidUtil::fromString(_uuid, text);
    EXPECT_TRUE(LiUuidUtil::isNil(_uuid));
}

} // namespace
} // namespace ZvTest
