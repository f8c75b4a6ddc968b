#include "platform/platformTest.h"

#include <set>
#include <string>

namespace ZvTest {

namespace {

RPC_STATUS parse(std::string text, UUID &uuid)
{
    return UuidFromStringA(reinterpret_cast<RPC_CSTR>(text.data()), &uuid);
}

std::string textOf(UUID uuid)
{
    RPC_CSTR text = nullptr;
    EXPECT_EQ(UuidToStringA(&uuid, &text), RPC_S_OK);
    std::string const result = reinterpret_cast<char *>(text);
    EXPECT_EQ(RpcStringFreeA(&text), RPC_S_OK);
    return result;
}

UUID const SAMPLE = {0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};
constexpr char const *TEXT = "00112233-4455-6677-8899-aabbccddeeff";

int compare(UUID left, UUID right)
{
    RPC_STATUS status = -1;
    int const result = UuidCompare(&left, &right, &status);
    EXPECT_EQ(status, RPC_S_OK);
    return result;
}

} // namespace

TEST(PlatformUuid, TextForm)
{
    EXPECT_EQ(textOf(SAMPLE), TEXT);
    EXPECT_EQ(textOf(UUID{}), "00000000-0000-0000-0000-000000000000");
}

TEST(PlatformUuid, FreeingATextSetsItsPointerToNull)
{
    UUID uuid = SAMPLE;
    RPC_CSTR text = nullptr;
    EXPECT_EQ(UuidToStringA(&uuid, &text), RPC_S_OK);
    EXPECT_EQ(RpcStringFreeA(&text), RPC_S_OK);
    EXPECT_EQ(text, nullptr);
}

TEST(PlatformUuid, GoodTextsAreRead)
{
    for (char const *text :
         {TEXT, "00112233-4455-6677-8899-AABBCCDDEEFF", "00112233-4455-6677-8899-AaBbCcDdEeFf"}) {
        UUID uuid{};
        EXPECT_EQ(parse(text, uuid), RPC_S_OK);
        EXPECT_EQ(compare(uuid, SAMPLE), 0);
    }
}

TEST(PlatformUuid, ANullTextIsTheNilIdentifier)
{
    UUID uuid = SAMPLE;
    EXPECT_EQ(UuidFromStringA(nullptr, &uuid), RPC_S_OK);
    EXPECT_EQ(compare(uuid, UUID{}), 0);
}

TEST(PlatformUuid, BadTextsAreRefusedAndChangeNothing)
{
    std::string const good = TEXT;
    std::vector<std::string> texts = {"",
                                      "x",
                                      "-",
                                      good + "0",
                                      good + " ",
                                      " " + good,
                                      "{" + good + "}",
                                      "001122334455-6677-8899-aabbccddeeff0",
                                      "00112233445566778899aabbccddeeff"};
    for (std::size_t i = 0; i < good.size(); ++i) {
        texts.push_back(good.substr(0, i));
        std::string wrong = good;
        wrong[i] = good[i] == '-' ? '0' : 'g';
        texts.push_back(wrong);
        wrong[i] = good[i] == '-' ? '_' : '-';
        texts.push_back(wrong);
        wrong[i] = ' ';
        texts.push_back(wrong);
    }
    for (std::string const &text : texts) {
        UUID uuid = SAMPLE;
        EXPECT_EQ(parse(text, uuid), RPC_S_INVALID_STRING_UUID) << text;
        EXPECT_EQ(compare(uuid, SAMPLE), 0) << text;
    }
}

TEST(PlatformUuid, NewOnesAreRandomOfTheStandardForm)
{
    std::set<std::string> seen;
    std::uint8_t ones[16] = {}, zeros[16] = {};
    for (int i = 0; i < 1000; ++i) {
        UUID uuid{};
        ASSERT_EQ(UuidCreate(&uuid), RPC_S_OK);
        EXPECT_EQ(uuid.Data3 >> 12, 4);
        EXPECT_EQ(uuid.Data4[0] >> 6, 2);
        seen.insert(textOf(uuid));
        std::uint8_t const bytes[16] = {static_cast<std::uint8_t>(uuid.Data1 >> 24),
                                        static_cast<std::uint8_t>(uuid.Data1 >> 16),
                                        static_cast<std::uint8_t>(uuid.Data1 >> 8),
                                        static_cast<std::uint8_t>(uuid.Data1),
                                        static_cast<std::uint8_t>(uuid.Data2 >> 8),
                                        static_cast<std::uint8_t>(uuid.Data2),
                                        static_cast<std::uint8_t>(uuid.Data3 >> 8),
                                        static_cast<std::uint8_t>(uuid.Data3),
                                        uuid.Data4[0],
                                        uuid.Data4[1],
                                        uuid.Data4[2],
                                        uuid.Data4[3],
                                        uuid.Data4[4],
                                        uuid.Data4[5],
                                        uuid.Data4[6],
                                        uuid.Data4[7]};
        for (int b = 0; b < 16; ++b) {
            ones[b] |= bytes[b];
            zeros[b] |= static_cast<std::uint8_t>(~bytes[b]);
        }
    }
    EXPECT_EQ(seen.size(), 1000u);
    // Every bit except those of version and variant takes both values.
    for (int b = 0; b < 16; ++b) {
        EXPECT_EQ(ones[b] | (b == 6 ? 0xB0 : b == 8 ? 0x40 : 0), 0xFF) << b;
        EXPECT_EQ(zeros[b] | (b == 6 ? 0x40 : b == 8 ? 0x80 : 0), 0xFF) << b;
    }
}

TEST(PlatformUuid, TheNilIdentifier)
{
    UUID uuid = SAMPLE;
    RPC_STATUS status = -1;
    EXPECT_FALSE(UuidIsNil(&uuid, &status));
    EXPECT_EQ(status, RPC_S_OK);
    EXPECT_EQ(UuidCreateNil(&uuid), RPC_S_OK);
    EXPECT_TRUE(UuidIsNil(&uuid, &status));
    EXPECT_TRUE(UuidIsNil(nullptr, &status));
}

TEST(PlatformUuid, OrderIsByFieldsAsUnsignedNumbers)
{
    UUID const base = {
        0x80000000, 0x8000, 0x8000, {0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80}};
    auto const changed = [&](int field, int by) {
        UUID uuid = base;
        if (field == 0)
            uuid.Data1 += static_cast<std::uint32_t>(by);
        else if (field == 1)
            uuid.Data2 = static_cast<std::uint16_t>(uuid.Data2 + by);
        else if (field == 2)
            uuid.Data3 = static_cast<std::uint16_t>(uuid.Data3 + by);
        else
            uuid.Data4[field - 3] = static_cast<std::uint8_t>(0x80 + by);
        return uuid;
    };
    EXPECT_EQ(compare(base, base), 0);
    for (int field = 0; field < 11; ++field) {
        EXPECT_EQ(compare(changed(field, -1), changed(field, 0)), -1) << field;
        EXPECT_EQ(compare(changed(field, 0), changed(field, -1)), 1) << field;
        // The first field that differs decides.
        if (field > 0) {
            EXPECT_EQ(compare(changed(field - 1, -1), changed(field, -1)), -1) << field;
        }
    }
    UUID one = base, two = changed(10, 1);
    RPC_STATUS status = -1;
    EXPECT_TRUE(UuidEqual(&one, &one, &status));
    EXPECT_FALSE(UuidEqual(&one, &two, &status));
    UUID nil{};
    EXPECT_EQ(UuidCompare(nullptr, &one, &status), -1);
    EXPECT_EQ(UuidCompare(nullptr, &nil, &status), 0);
    EXPECT_EQ(status, RPC_S_OK);
}

TEST(PlatformUuid, EqualOnesHaveEqualHashes)
{
    std::set<std::uint16_t> hashes;
    for (int i = 0; i < 1000; ++i) {
        UUID uuid{};
        UuidCreate(&uuid);
        UUID copy = uuid;
        RPC_STATUS status = -1;
        std::uint16_t const hash = UuidHash(&uuid, &status);
        EXPECT_EQ(status, RPC_S_OK);
        EXPECT_EQ(UuidHash(&copy, &status), hash);
        hashes.insert(hash);
    }
    // 1000 identifiers have nearly as many different hashes.
    EXPECT_GT(hashes.size(), 900u);
}

} // namespace ZvTest
