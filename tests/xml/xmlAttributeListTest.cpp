#include "testing/groupingLocale.h"
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
    EXPECT_EQ(list.getLength(), 0);
    list.addAttribute("b", "1");
    list.addAttribute("a", LiString("2\0", 2));
    list.addAttribute("b", "3");
    list.addAttribute("", "");
    ASSERT_EQ(list.getLength(), 4);
    EXPECT_EQ(bytesOf(list.getName(0)), "b");
    EXPECT_EQ(bytesOf(list.getValue(0)), "1");
    EXPECT_EQ(bytesOf(list.getName(1)), "a");
    EXPECT_EQ(bytesOf(list.getValue(1)), std::string("2\0", 2));
    EXPECT_EQ(bytesOf(list.getValue(2)), "3");
    EXPECT_EQ(bytesOf(list.getName(3)), "");
    EXPECT_EQ(bytesOf(list.getValue(3)), "");
}

TEST(XmlAttributeList, FindsTheFirstOfAName)
{
    XmlAttributeList list;
    list.addAttribute("bb", "0");
    list.addAttribute("a", "1");
    list.addAttribute("b", "2");
    list.addAttribute("b", "3");
    EXPECT_EQ(list.index("a"), 1);
    EXPECT_EQ(list.index("b"), 2);
    EXPECT_EQ(list.index("c"), -1);
    EXPECT_EQ(list.index(""), -1);
    EXPECT_TRUE(list.exists("a"));
    EXPECT_FALSE(list.exists("c"));
    EXPECT_EQ(bytesOf(list.getValue("b")), "2");
}

TEST(XmlAttributeList, AMissingNameThrows)
{
    XmlAttributeList const list = listOf("1");
    EXPECT_FALSE(list.exists("y"));
    char const reason[] = "Non existent attribute.";
    EXPECT_EQ(reasonOf([&] { list.getValue("y"); }), reason);
    EXPECT_EQ(reasonOf([&] { list.getInt("y"); }), reason);
    EXPECT_EQ(reasonOf([&] { list.getLong("y"); }), reason);
    EXPECT_EQ(reasonOf([&] { list.getInt8("y"); }), reason);
    EXPECT_EQ(reasonOf([&] { list.getUInt8("y"); }), reason);
    EXPECT_EQ(reasonOf([&] { list.getInt16("y"); }), reason);
    EXPECT_EQ(reasonOf([&] { list.getUInt16("y"); }), reason);
    EXPECT_EQ(reasonOf([&] { list.getInt32("y"); }), reason);
    EXPECT_EQ(reasonOf([&] { list.getUInt32("y"); }), reason);
    for (int const position : {-1, 1}) {
        EXPECT_EQ(reasonOf([&] { list.getName(position); }), reason);
        EXPECT_EQ(reasonOf([&] { list.getValue(position); }), reason);
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
    EXPECT_EQ(list.getLength(), 2);
    EXPECT_EQ(bytesOf(list.getName(0)), "b");
    EXPECT_EQ(bytesOf(list.getValue("a")), "3");
    list.clear();
    EXPECT_EQ(list.getLength(), 0);
    EXPECT_FALSE(list.exists("b"));
    list.addAttribute("c", "4");
    EXPECT_EQ(bytesOf(list.getValue("c")), "4");
}

TEST(XmlAttributeList, CopiesAreIndependent)
{
    XmlAttributeList list = listOf("1");
    XmlAttributeList const copy = list;
    list.clear();
    list.addAttribute("x", "2");
    EXPECT_EQ(bytesOf(copy.getValue("x")), "1");
}

TEST(XmlAttributeList, ReadsNumbersAsAStreamDoes)
{
    EXPECT_EQ(listOf(" -12abc").getInt("x"), -12);
    EXPECT_EQ(listOf(std::to_string(std::numeric_limits<long>::min()).c_str()).getLong("x"),
              std::numeric_limits<long>::min());
    EXPECT_EQ(listOf("7").getInt8("x"), 7) << "a number and no character";
    EXPECT_EQ(listOf("-128").getInt8("x"), -128);
    EXPECT_EQ(listOf("127").getInt8("x"), 127);
    EXPECT_EQ(listOf("255").getUInt8("x"), 255);
    EXPECT_EQ(listOf("0").getUInt8("x"), 0);
    EXPECT_EQ(listOf("-32768").getInt16("x"), -32768);
    EXPECT_EQ(listOf("65535").getUInt16("x"), 65535);
    EXPECT_EQ(listOf("-2147483648").getInt32("x"), -2147483648);
    EXPECT_EQ(listOf("4294967295").getUInt32("x"), 4294967295u);
}

TEST(XmlAttributeList, AnUnsignedNumberIsNotNegative)
{
    char const reason[] = "Conversion error.";
    for (char const *value : {"-1", "-65535", "-4294967295", "-9223372036854775808"}) {
        XmlAttributeList const list = listOf(value);
        EXPECT_EQ(reasonOf([&] { list.getUInt8("x"); }), reason) << value;
        EXPECT_EQ(reasonOf([&] { list.getUInt16("x"); }), reason) << value;
        EXPECT_EQ(reasonOf([&] { list.getUInt32("x"); }), reason) << value;
    }
    EXPECT_EQ(listOf("-0").getUInt8("x"), 0);
    EXPECT_EQ(listOf("-0").getUInt16("x"), 0);
    EXPECT_EQ(listOf("-0").getUInt32("x"), 0u);
}

TEST(XmlAttributeList, ReadsNumbersIndependentlyOfTheLocale)
{
    GroupingLocale const locale;
    EXPECT_EQ(listOf("1234567").getInt("x"), 1234567);
    EXPECT_EQ(listOf("1.234.567").getInt("x"), 1);
}

TEST(XmlAttributeList, AnInvalidOrTooLargeNumberIsAConversionError)
{
    char const reason[] = "Conversion error.";
    for (char const *value : {"", "abc", " ", "-", "x1"}) {
        XmlAttributeList const list = listOf(value);
        EXPECT_EQ(reasonOf([&] { list.getInt("x"); }), reason);
        EXPECT_EQ(reasonOf([&] { list.getLong("x"); }), reason);
        EXPECT_EQ(reasonOf([&] { list.getInt8("x"); }), reason);
        EXPECT_EQ(reasonOf([&] { list.getUInt8("x"); }), reason);
        EXPECT_EQ(reasonOf([&] { list.getInt16("x"); }), reason);
        EXPECT_EQ(reasonOf([&] { list.getUInt16("x"); }), reason);
        EXPECT_EQ(reasonOf([&] { list.getInt32("x"); }), reason);
        EXPECT_EQ(reasonOf([&] { list.getUInt32("x"); }), reason);
    }
    EXPECT_EQ(reasonOf([] { listOf("2147483648").getInt("x"); }), reason);
    EXPECT_EQ(reasonOf([] { listOf("9223372036854775808").getLong("x"); }), reason);
    EXPECT_EQ(reasonOf([] { listOf("128").getInt8("x"); }), reason);
    EXPECT_EQ(reasonOf([] { listOf("-129").getInt8("x"); }), reason);
    EXPECT_EQ(reasonOf([] { listOf("256").getUInt8("x"); }), reason);
    EXPECT_EQ(reasonOf([] { listOf("-1").getUInt8("x"); }), reason);
    EXPECT_EQ(reasonOf([] { listOf("32768").getInt16("x"); }), reason);
    EXPECT_EQ(reasonOf([] { listOf("65536").getUInt16("x"); }), reason);
    EXPECT_EQ(reasonOf([] { listOf("-2147483649").getInt32("x"); }), reason);
    EXPECT_EQ(reasonOf([] { listOf("4294967296").getUInt32("x"); }), reason);
}

} // namespace
} // namespace ZvTest
