#include "resmgt/literals/liUuid.h"

#include "resmgt/literals/liUuidEx.h"
#include "zvbase/containers.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <type_traits>

namespace ZvTest {

using namespace Zv;

namespace {

TEST(LiUuid, IsNilUntilItIsCreated)
{
    LiUuid uuid;
    EXPECT_TRUE(uuid.isNil());
    EXPECT_STREQ(uuid.toString().getChars(), "00000000-0000-0000-0000-000000000000");
    uuid.create();
    EXPECT_FALSE(uuid.isNil());
    uuid.clear();
    EXPECT_TRUE(uuid.isNil());
    EXPECT_FALSE(LiUuid(LiUuid::CREATE).isNil());
}

TEST(LiUuid, EachIsAnother)
{
    LiUuid const a(LiUuid::CREATE);
    LiUuid const b(LiUuid::CREATE);
    EXPECT_FALSE(a.equal(b));
    EXPECT_TRUE(a != b);
    EXPECT_EQ(-b.compare(a), a.compare(b));
    EXPECT_NE(a.compare(b), 0);
}

TEST(LiUuid, ReadsItsOwnText)
{
    LiUuid const uuid(LiUuid::CREATE);
    LiUuid other;
    other.fromString(uuid.toString());
    EXPECT_TRUE(other.equal(uuid));
    EXPECT_EQ(uuid, other);
    EXPECT_EQ(LiUuid(uuid.toString()), uuid);
    EXPECT_EQ(uuid.hash(), other.hash());
    EXPECT_EQ(uuid.hash(), static_cast<std::uint64_t>(uuid));
    EXPECT_GE(0xFFFFU, uuid.hash());
}

TEST(LiUuid, HasTheUsualText)
{
    LiString const text("6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    EXPECT_EQ(LiUuid(text).toString(), text);
    EXPECT_EQ(LiUuid(LiString("6BA7B810-9DAD-11D1-80B4-00C04FD430C8")).toString(), text);
    LiString const fresh = LiUuid(LiUuid::CREATE).toString();
    ASSERT_EQ(fresh.getLength(), 36);
    for (int i = 0; i < fresh.getLength(); ++i) {
        if (i == 8 || i == 13 || i == 18 || i == 23)
            EXPECT_EQ(fresh[i], '-');
        else
            EXPECT_TRUE(std::isxdigit(static_cast<unsigned char>(fresh[i])));
    }
}

TEST(LiUuid, RefusesInvalidTexts)
{
    try {
        LiUuid uuid(LiString("x"));
        FAIL() << "nothing thrown";
    } catch (std::invalid_argument const &error) {
        EXPECT_STREQ(error.what(), "\"x\" is not a valid uuid representation.");
    }
    for (char const *text :
         {"6ba7b810-9dad-11d1-80b4-00c04fd430c", "6ba7b810-9dad-11d1-80b4-00c04fd430c8a",
          "6ba7b810-9dad-11d1-80b4-00c04fd430cg", "6ba7b8109dad-11d1-80b4-00c04fd430c8-"})
        EXPECT_THROW(LiUuid{LiString(text)}, LiUuidEx::ExInvalidUuidString) << text;
}

TEST(LiUuid, RefusesATextWithSomethingBehindAZeroByte)
{
    char const text[] = "6ba7b810-9dad-11d1-80b4-00c04fd430c8\0junk";
    EXPECT_NO_THROW(LiUuid(LiString(text, 36)));
    EXPECT_THROW(LiUuid(LiString(text, 37)), LiUuidEx::ExInvalidUuidString);
    EXPECT_THROW(LiUuid(LiString(text, sizeof text - 1)), LiUuidEx::ExInvalidUuidString);
}

TEST(LiUuid, StaysWhatItWasWhenATextIsRefused)
{
    LiUuid uuid(LiUuid::CREATE);
    LiUuid const copy(uuid);
    EXPECT_THROW(uuid.fromString(LiString("x")), ExBase);
    EXPECT_EQ(copy, uuid);
}

TEST(LiUuid, ComparesByFields)
{
    LiUuid const low(LiString("00000001-0000-0000-0000-000000000000"));
    LiUuid const high(LiString("80000000-0000-0000-0000-000000000000"));
    LiUuid const last(LiString("00000001-0000-0000-0000-000000000001"));
    EXPECT_EQ(low.compare(high), -1);
    EXPECT_EQ(high.compare(low), 1);
    EXPECT_EQ(low.compare(low), 0);
    EXPECT_TRUE(low < high && low < last && last < high && high >= last && low <= low &&
                high > low);
}

TEST(LiUuid, ServesAsAKeyAndConvertsExplicitly)
{
    EXPECT_FALSE((std::is_convertible_v<LiUuid, std::uint64_t>));
    HashMap<LiUuid, int> map;
    LiUuid const key(LiUuid::CREATE);
    map[key] = 3;
    EXPECT_EQ(map.at(key), 3);
}

TEST(LiUuidEx, NamesTheFunctionThatFailed)
{
    LiUuidEx::ExInternalError const error("file", 1, "UuidCreate");
    EXPECT_STREQ(error.what(), "Call to function UuidCreate() failed.");
    EXPECT_STREQ(error.getReason(), static_cast<std::runtime_error const &>(error).what());
}

} // namespace
} // namespace ZvTest
