#include "groupingLocale.h"
#include "xmlTesting.h"

#include <limits>

namespace ZvTest {
namespace {

XmlAttributeList listOf(char const *value)
{
    XmlAttributeList list;
    list.addAttribute("x", value);
    return list;
}

TEST(XmlAttributeList, KeepsTheOrderAndEveryEntry)
{
    XmlAttributeList list;
    EXPECT_EQ(0, list.getLength());
    list.addAttribute("b", "1");
    list.addAttribute("a", LiString("2\0", 2));
    list.addAttribute("b", "3");
    list.addAttribute("", "");
    ASSERT_EQ(4, list.getLength());
    EXPECT_EQ("b", bytesOf(list.getName(0)));
    EXPECT_EQ("1", bytesOf(list.getValue(0)));
    EXPECT_EQ("a", bytesOf(list.getName(1)));
    EXPECT_EQ(std::string("2\0", 2), bytesOf(list.getValue(1)));
    EXPECT_EQ("3", bytesOf(list.getValue(2)));
    EXPECT_EQ("", bytesOf(list.getName(3)));
    EXPECT_EQ("", bytesOf(list.getValue(3)));
}

TEST(XmlAttributeList, FindsTheFirstOfAName)
{
    XmlAttributeList list;
    list.addAttribute("bb", "0");
    list.addAttribute("a", "1");
    list.addAttribute("b", "2");
    list.addAttribute("b", "3");
    EXPECT_EQ(1, list.index("a"));
    EXPECT_EQ(2, list.index("b"));
    EXPECT_EQ(-1, list.index("c"));
    EXPECT_EQ(-1, list.index(""));
    EXPECT_TRUE(list.exists("a"));
    EXPECT_FALSE(list.exists("c"));
    EXPECT_EQ("2", bytesOf(list.getValue("b")));
}

TEST(XmlAttributeList, AMissingNameThrows)
{
    XmlAttributeList const list = listOf("1");
    EXPECT_FALSE(list.exists("y"));
    char const reason[] = "Non existent attribute.";
    EXPECT_EQ(reason, reasonOf([&] { list.getValue("y"); }));
    EXPECT_EQ(reason, reasonOf([&] { list.getInt("y"); }));
    EXPECT_EQ(reason, reasonOf([&] { list.getLong("y"); }));
    EXPECT_EQ(reason, reasonOf([&] { list.getInt8("y"); }));
    EXPECT_EQ(reason, reasonOf([&] { list.getUInt8("y"); }));
    EXPECT_EQ(reason, reasonOf([&] { list.getInt16("y"); }));
    EXPECT_EQ(reason, reasonOf([&] { list.getUInt16("y"); }));
    EXPECT_EQ(reason, reasonOf([&] { list.getInt32("y"); }));
    EXPECT_EQ(reason, reasonOf([&] { list.getUInt32("y"); }));
    for (int const position : {-1, 1}) {
        EXPECT_EQ(reason, reasonOf([&] { list.getName(position); }));
        EXPECT_EQ(reason, reasonOf([&] { list.getValue(position); }));
    }
}

TEST(XmlAttributeList, EntriesAreRemoved)
{
    XmlAttributeList list;
    list.addAttribute("a", "1");
    list.addAttribute("b", "2");
    list.addAttribute("a", "3");
    list.removeAttribute("missing");
    list.removeAttribute("a");
    EXPECT_EQ(2, list.getLength());
    EXPECT_EQ("b", bytesOf(list.getName(0)));
    EXPECT_EQ("3", bytesOf(list.getValue("a")));
    list.clear();
    EXPECT_EQ(0, list.getLength());
    EXPECT_FALSE(list.exists("b"));
    list.addAttribute("c", "4");
    EXPECT_EQ("4", bytesOf(list.getValue("c")));
}

TEST(XmlAttributeList, CopiesAreIndependent)
{
    XmlAttributeList list = listOf("1");
    XmlAttributeList const copy = list;
    list.clear();
    list.addAttribute("x", "2");
    EXPECT_EQ("1", bytesOf(copy.getValue("x")));
}

TEST(XmlAttributeList, ReadsNumbersAsAStreamDoes)
{
    EXPECT_EQ(-12, listOf(" -12abc").getInt("x"));
    EXPECT_EQ(std::numeric_limits<long>::min(),
              listOf(std::to_string(std::numeric_limits<long>::min()).c_str()).getLong("x"));
    EXPECT_EQ(7, listOf("7").getInt8("x")) << "a number and no character";
    EXPECT_EQ(-128, listOf("-128").getInt8("x"));
    EXPECT_EQ(127, listOf("127").getInt8("x"));
    EXPECT_EQ(255, listOf("255").getUInt8("x"));
    EXPECT_EQ(0, listOf("0").getUInt8("x"));
    EXPECT_EQ(-32768, listOf("-32768").getInt16("x"));
    EXPECT_EQ(65535, listOf("65535").getUInt16("x"));
    EXPECT_EQ(-2147483648, listOf("-2147483648").getInt32("x"));
    EXPECT_EQ(4294967295u, listOf("4294967295").getUInt32("x"));
}

TEST(XmlAttributeList, AnUnsignedNumberIsNotNegative)
{
    char const reason[] = "Conversion error.";
    for (char const *value : {"-1", "-65535", "-4294967295", "-9223372036854775808"}) {
        XmlAttributeList const list = listOf(value);
        EXPECT_EQ(reason, reasonOf([&] { list.getUInt8("x"); })) << value;
        EXPECT_EQ(reason, reasonOf([&] { list.getUInt16("x"); })) << value;
        EXPECT_EQ(reason, reasonOf([&] { list.getUInt32("x"); })) << value;
    }
    EXPECT_EQ(0, listOf("-0").getUInt8("x"));
    EXPECT_EQ(0, listOf("-0").getUInt16("x"));
    EXPECT_EQ(0u, listOf("-0").getUInt32("x"));
}

TEST(XmlAttributeList, ReadsNumbersWhateverLocaleTheProgramHas)
{
    GroupingLocale const locale;
    EXPECT_EQ(1234567, listOf("1234567").getInt("x"));
    EXPECT_EQ(1, listOf("1.234.567").getInt("x"));
}

TEST(XmlAttributeList, WhatIsNoNumberOrDoesNotFitIsAConversionError)
{
    char const reason[] = "Conversion error.";
    for (char const *value : {"", "abc", " ", "-", "x1"}) {
        XmlAttributeList const list = listOf(value);
        EXPECT_EQ(reason, reasonOf([&] { list.getInt("x"); }));
        EXPECT_EQ(reason, reasonOf([&] { list.getLong("x"); }));
        EXPECT_EQ(reason, reasonOf([&] { list.getInt8("x"); }));
        EXPECT_EQ(reason, reasonOf([&] { list.getUInt8("x"); }));
        EXPECT_EQ(reason, reasonOf([&] { list.getInt16("x"); }));
        EXPECT_EQ(reason, reasonOf([&] { list.getUInt16("x"); }));
        EXPECT_EQ(reason, reasonOf([&] { list.getInt32("x"); }));
        EXPECT_EQ(reason, reasonOf([&] { list.getUInt32("x"); }));
    }
    EXPECT_EQ(reason, reasonOf([] { listOf("2147483648").getInt("x"); }));
    EXPECT_EQ(reason, reasonOf([] { listOf("9223372036854775808").getLong("x"); }));
    EXPECT_EQ(reason, reasonOf([] { listOf("128").getInt8("x"); }));
    EXPECT_EQ(reason, reasonOf([] { listOf("-129").getInt8("x"); }));
    EXPECT_EQ(reason, reasonOf([] { listOf("256").getUInt8("x"); }));
    EXPECT_EQ(reason, reasonOf([] { listOf("-1").getUInt8("x"); }));
    EXPECT_EQ(reason, reasonOf([] { listOf("32768").getInt16("x"); }));
    EXPECT_EQ(reason, reasonOf([] { listOf("65536").getUInt16("x"); }));
    EXPECT_EQ(reason, reasonOf([] { listOf("-2147483649").getInt32("x"); }));
    EXPECT_EQ(reason, reasonOf([] { listOf("4294967296").getUInt32("x"); }));
}

} // namespace
} // namespace ZvTest
