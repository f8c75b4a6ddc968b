#include "resmgt/literals/liString.h"

#include "testing/failures.h"
#include "zvbase/containers.h"
#include "zvbase/rcEx.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <ranges>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <vector>

#ifndef _WIN32
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace ZvTest {

using namespace Zv;

namespace {

LiString text(std::string const &bytes)
{
    LiString string;
    for (char c : bytes)
        string += c;
    return string;
}

TEST(LiString, AllKindsOfEmptyShareOneBody)
{
    char const * const none = nullptr;
    LiString const fromDefault;
    LiString const fromNull(none);
    LiString const fromNullptr(nullptr);
    LiString const fromEmpty("");
    LiString const fromRange(LiString("abc"), 1, 0);
    char const * const chars = fromDefault.getChars();
    EXPECT_EQ(fromNull.getChars(), chars);
    EXPECT_EQ(fromNullptr.getChars(), chars);
    EXPECT_EQ(fromEmpty.getChars(), chars);
    EXPECT_EQ(fromRange.getChars(), chars);
    LiString assigned("abc");
    assigned = "";
    EXPECT_EQ(assigned.getChars(), chars);
    assigned = "abc";
    assigned = none;
    EXPECT_EQ(assigned.getChars(), chars);
    EXPECT_TRUE(fromNull.isEmpty());
    EXPECT_EQ(fromNull.getLength(), 0);
    EXPECT_STREQ(fromNull.getChars(), "");
    EXPECT_EQ(LiString::getEmptyImp(), LiString::getEmptyImp());
}

TEST(LiString, AnEmptyStringIsNotTheEmptyBodyOnceItChanges)
{
    LiString changed;
    changed += 'x';
    EXPECT_STREQ(changed.getChars(), "x");
    EXPECT_TRUE(LiString().isEmpty());
    EXPECT_STREQ(LiString().getChars(), "");
}

TEST(LiString, HasTheSizeOfAPointer)
{
    EXPECT_EQ(sizeof(LiString), sizeof(void *));
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<LiString>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<LiString>);
}

TEST(LiString, ConvertsToNumbersExplicitlyOnly)
{
    EXPECT_FALSE((std::is_convertible_v<LiString, std::uint64_t>));
    EXPECT_TRUE((std::is_constructible_v<std::uint64_t, LiString>));
    EXPECT_EQ(LiString("abc").hash(), static_cast<std::uint64_t>(LiString("abc")));
}

TEST(LiString, CopiesShareUntilOneChanges)
{
    LiString b("name");
    LiString a = b;
    EXPECT_EQ(a.getChars(), b.getChars());
    a += "x";
    EXPECT_STREQ(a.getChars(), "namex");
    EXPECT_STREQ(b.getChars(), "name");
    LiString c = b;
    c.replace(0, 'g');
    EXPECT_STREQ(c.getChars(), "game");
    EXPECT_STREQ(b.getChars(), "name");
    c = b;
    EXPECT_EQ(c.getChars(), b.getChars());
    c = "other";
    EXPECT_STREQ(b.getChars(), "name");
    EXPECT_STREQ(c.getChars(), "other");
}

TEST(LiString, AssignsItself)
{
    LiString a("self");
    LiString const &same = a;
    a = same;
    EXPECT_STREQ(a.getChars(), "self");
    a = a.getChars() + 1;
    EXPECT_STREQ(a.getChars(), "elf");
}

LiString movedFrom()
{
    LiString string("name");
    LiString const other(std::move(string));
    return string;
}

TEST(LiString, AMovedFromStringTakesANewValueInAnyWay)
{
    LiString const value("value");
    LiString string(movedFrom());
    string = value;
    EXPECT_EQ(string, value);
    string = movedFrom();
    string = "value";
    EXPECT_EQ(string, value);
    string = movedFrom();
    string.assign("value", 5);
    EXPECT_EQ(string, value);
    string = movedFrom();
    string.assign(nullptr, 0);
    EXPECT_TRUE(string.isEmpty());
    string = movedFrom();
    std::istringstream stream("value");
    stream >> string;
    EXPECT_EQ(string, value);
}

#ifndef _WIN32

/// A text that is as long as it says, of one piece of memory that is mapped again and again.
class LongText
{
public:
    explicit LongText(std::size_t length) : _size((length / PIECE + 1) * PIECE)
    {
        int const file = ::memfd_create("text", 0);
        std::string const piece(PIECE, 'x');
        EXPECT_EQ(::write(file, piece.data(), PIECE), static_cast<ssize_t>(PIECE));
        _memory =
            ::mmap(nullptr, _size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        for (std::size_t place = 0; place != _size; place += PIECE)
            EXPECT_NE(::mmap(static_cast<char *>(_memory) + place, PIECE, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_FIXED, file, 0),
                      MAP_FAILED);
        ::close(file);
        static_cast<char *>(_memory)[length] = '\0';
    }
    ~LongText() { ::munmap(_memory, _size); }
    LongText(LongText const &) = delete;
    LongText &operator=(LongText const &) = delete;
    char const *get() const { return static_cast<char const *>(_memory); }

private:
    static constexpr std::size_t PIECE = std::size_t{1} << 24;

    std::size_t _size;
    void *_memory;
};

TEST(LiString, RefusesATextThatIsTooLongForAnInt)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer notes each byte that is looked at";
#else
    LongText const text((std::size_t{1} << 31) - 1);
    LiString string("kept");
    EXPECT_THROW(string = text.get(), std::length_error);
    EXPECT_THROW(string += text.get(), std::length_error);
    EXPECT_THROW(LiString{text.get()}, std::length_error);
    EXPECT_STREQ(string.getChars(), "kept");
#endif
}

#endif

TEST(LiString, AMovedFromStringThrowsUntilItIsAssigned)
{
    LiString a("name");
    LiString const b(std::move(a));
    EXPECT_STREQ(b.getChars(), "name");
    EXPECT_THROW(a.getChars(), RCEx::ExNullPtr);
    EXPECT_THROW(a.getLength(), RCEx::ExNullPtr);
    EXPECT_THROW(a.isEmpty(), RCEx::ExNullPtr);
    EXPECT_THROW(a.hash(), RCEx::ExNullPtr);
    EXPECT_THROW(a[0], RCEx::ExNullPtr);
    EXPECT_THROW(a.begin(), RCEx::ExNullPtr);
    EXPECT_THROW(a.end(), RCEx::ExNullPtr);
    EXPECT_THROW(static_cast<void>(static_cast<std::string_view>(a)), RCEx::ExNullPtr);
    EXPECT_THROW(a += std::string_view("x"), RCEx::ExNullPtr);
    EXPECT_THROW(a += "x", RCEx::ExNullPtr);
    EXPECT_THROW(a += a, RCEx::ExNullPtr);
    EXPECT_THROW(a.replace(0, 'x'), RCEx::ExNullPtr);
    EXPECT_THROW(a.find("x"), RCEx::ExNullPtr);
    EXPECT_THROW(static_cast<void>(a == b), RCEx::ExNullPtr);
    EXPECT_THROW(static_cast<void>(a.releaseChars()), RCEx::ExNullPtr);
    LiString copy(a);
    EXPECT_THROW(copy.getChars(), RCEx::ExNullPtr);
    a = "again";
    EXPECT_STREQ(a.getChars(), "again");
    copy = b;
    EXPECT_STREQ(copy.getChars(), "name");
}

TEST(LiString, TakesARange)
{
    LiString const s("resource");
    EXPECT_STREQ(LiString(s, 2, 6).getChars(), "source");
    EXPECT_STREQ(LiString(s, 7, 1).getChars(), "e");
    EXPECT_EQ(LiString(s, 2, 6).getLength(), 6);
}

TEST(LiString, ARangeOfLengthZeroIsEmptyForEveryStart)
{
    LiString const empty;
    EXPECT_TRUE(LiString(empty, 0, 0).isEmpty());
    EXPECT_TRUE(LiString(empty, -7, 0).isEmpty());
    EXPECT_TRUE(LiString(LiString("abc"), 99, 0).isEmpty());
    EXPECT_EQ(reasonOf<std::range_error>([&] { LiString(empty, 0, 1); }),
              "Index (0) is not in the proper range (0-0).");
}

TEST(LiString, ARangeOutsideNamesTheFirstThingThatIsWrong)
{
    LiString const s("abc");
    EXPECT_EQ(reasonOf<std::range_error>([&] { LiString(s, 3, 1); }),
              "Index (3) is not in the proper range (0-3).");
    EXPECT_EQ(reasonOf<std::range_error>([&] { LiString(s, -1, -2); }),
              "Index (-1) is not in the proper range (0-3).");
    EXPECT_EQ(reasonOf<std::range_error>([&] { LiString(s, 1, -2); }),
              "Index (-2) is not in the proper range (0-3).");
    EXPECT_EQ(reasonOf<std::range_error>([&] { LiString(s, 1, 3); }),
              "Index (3) is not in the proper range (0-3).");
    int const most = std::numeric_limits<int>::max();
    EXPECT_EQ(reasonOf<std::range_error>([&] { LiString(s, 2, most); }),
              "Index (2147483647) is not in the proper range (0-3).");
}

TEST(LiString, TakesAnArrayOverWithoutCopying)
{
    char * const chars = new char[8]{'a', 'b', '\0', 'x'};
    ArrayPtr<char> owner(chars);
    LiString s(std::move(owner));
    EXPECT_EQ(s.getChars(), chars);
    EXPECT_EQ(s.getLength(), 2);
    s += "c";
    EXPECT_STREQ(s.getChars(), "abc");
    EXPECT_TRUE(LiString(ArrayPtr<char>()).isEmpty());
}

TEST(LiString, HandsItsCharactersOut)
{
    LiString s("abc");
    LiString const shared(s);
    char const * const body = s.getChars();
    ArrayPtr<char> fromShared(s.releaseChars());
    EXPECT_NE(fromShared.get(), body);
    EXPECT_STREQ(fromShared.get(), "abc");
    EXPECT_STREQ(shared.getChars(), "abc");
    EXPECT_EQ(s.getChars(), LiString().getChars());

    LiString sole("xyz");
    char const * const own = sole.getChars();
    ArrayPtr<char> fromSole(sole.releaseChars());
    EXPECT_EQ(fromSole.get(), own);
    EXPECT_TRUE(sole.isEmpty());

    ArrayPtr<char> fromEmpty(sole.releaseChars());
    EXPECT_STREQ(fromEmpty.get(), "");
    EXPECT_NE(sole.getChars(), fromEmpty.get());
}

TEST(LiString, CopiesAStreamsTextUpToTheFirstZeroByte)
{
    std::ostringstream stream;
    stream << "ab" << 12 << '\0' << "rest";
    LiString const s(stream);
    EXPECT_STREQ(s.getChars(), "ab12");
    EXPECT_EQ(s.getLength(), 4);
}

TEST(LiString, Appends)
{
    LiString s("a");
    s += "bc";
    s += LiString("de");
    s += 'f';
    char const * const none = nullptr;
    s += none;
    s += "";
    s += LiString();
    EXPECT_STREQ(s.getChars(), "abcdef");
    EXPECT_EQ(s.getLength(), 6);
}

TEST(LiString, AppendsItself)
{
    LiString a("abc");
    a += a;
    EXPECT_STREQ(a.getChars(), "abcabc");
    a += a; // has the room by now
    EXPECT_STREQ(a.getChars(), "abcabcabcabc");
    a += a.getChars() + 9;
    EXPECT_STREQ(a.getChars(), "abcabcabcabcabc");
    LiString const shared(a);
    a += a.getChars() + 14;
    EXPECT_STREQ(a.getChars(), "abcabcabcabcabcc");
    EXPECT_STREQ(shared.getChars(), "abcabcabcabcabc");
}

TEST(LiString, GrowsByItsNeedAndIsNotMovedIfItHasRoom)
{
    LiString s("abcd");
    s += 'e'; // 4 + 5
    char const * const chars = s.getChars();
    s += "fghi";
    EXPECT_EQ(s.getChars(), chars);
    s += 'j';
    EXPECT_STREQ(s.getChars(), "abcdefghij");
}

TEST(LiString, KeepsZeroBytesThatWereAppended)
{
    LiString const s = text(std::string("a\0b", 3));
    EXPECT_EQ(s.getLength(), 3);
    EXPECT_FALSE(s == LiString("a"));
    EXPECT_TRUE(s == "a");
    EXPECT_FALSE(s < LiString("a"));
    EXPECT_FALSE(s > LiString("a"));
    LiString const tail(s, 2, 1);
    EXPECT_STREQ(tail.getChars(), "b");
}

TEST(LiString, IndexesWithinItsLength)
{
    LiString const s("abc");
    EXPECT_EQ(s[0], 'a');
    EXPECT_EQ(s[2], 'c');
    EXPECT_EQ(reasonOf<std::range_error>([&] { s[s.getLength()]; }),
              "Index (3) is not in the proper range (0-3).");
    EXPECT_EQ(reasonOf<std::range_error>([&] { s[-1]; }),
              "Index (-1) is not in the proper range (0-3).");
    EXPECT_THROW(s[3], LiStringEx);
    EXPECT_THROW(s[3], ExBase);
}

TEST(LiString, ReplacesOneByte)
{
    LiString s("abc");
    s.replace(1, 'X');
    EXPECT_STREQ(s.getChars(), "aXc");
    LiString const shared(s);
    EXPECT_EQ(reasonOf<std::range_error>([&] { s.replace(3, 'Y'); }),
              "Index (3) is not in the proper range (0-3).");
    EXPECT_EQ(shared.getChars(), s.getChars());
}

TEST(LiString, ReplacesARange)
{
    LiString s("abcdef");
    s.replace(2, LiString("XY"));
    EXPECT_STREQ(s.getChars(), "abXYef");
    s.replace(0, s);
    EXPECT_STREQ(s.getChars(), "abXYef");
    s.replace(99, LiString());
    EXPECT_STREQ(s.getChars(), "abXYef");
    EXPECT_EQ(reasonOf<std::range_error>([&] { s.replace(5, LiString("PQ")); }),
              "Index (6) is not in the proper range (0-6).");
    EXPECT_EQ(reasonOf<std::range_error>([&] { s.replace(-1, LiString("PQ")); }),
              "Index (-1) is not in the proper range (0-6).");
    EXPECT_EQ(reasonOf<std::range_error>(
                  [&] { s.replace(std::numeric_limits<int>::max(), LiString("PQ")); }),
              "Index (2147483647) is not in the proper range (0-6).");
    EXPECT_STREQ(s.getChars(), "abXYef");
}

TEST(LiString, FindsTheFirstPosition)
{
    LiString const s("abcabc");
    EXPECT_EQ(s.find("bc"), 1);
    EXPECT_EQ(s.find(LiString("ca")), 2);
    EXPECT_EQ(s.find("x"), -1);
    EXPECT_EQ(s.find(""), 0);
    EXPECT_EQ(LiString().find(LiString()), 0);
    EXPECT_TRUE(s.has("cab"));
    EXPECT_FALSE(s.has(LiString("cb")));
    EXPECT_TRUE(s.has(""));
    EXPECT_TRUE(s.hasPrefix(LiString("abc")));
    EXPECT_TRUE(s.hasPrefix(LiString()));
    EXPECT_FALSE(s.hasPrefix(LiString("abd")));
    EXPECT_FALSE(s.hasPrefix(LiString("abcabcd")));
}

TEST(LiString, HashesSignedBytesTimesFive)
{
    EXPECT_EQ(LiString().hash(), 0U);
    EXPECT_EQ(LiString("abc").hash(), (97U * 5 + 98) * 5 + 99);
    EXPECT_EQ(LiString("\x80").hash(), static_cast<std::uint32_t>(-128));
    EXPECT_EQ(LiString("\xff\x01").hash(), static_cast<std::uint32_t>(-1 * 5 + 1));
    std::uint32_t h = 0;
    for (int i = 0; i < 100; ++i)
        h = h * 5 + 'z';
    EXPECT_EQ(text(std::string(100, 'z')).hash(), h);
}

TEST(LiString, ComparesUnsignedBytes)
{
    char const * const none = nullptr;
    EXPECT_EQ(LiString::compare("a", "a"), 0);
    EXPECT_EQ(LiString::compare("a", "c"), -1);
    EXPECT_EQ(LiString::compare("ab", "a"), 1);
    EXPECT_EQ(LiString::compare("\x80", "a"), 1);
    EXPECT_EQ(LiString::compare(none, ""), 0);
    EXPECT_EQ(LiString::compare(none, none), 0);
    EXPECT_EQ(LiString::compare(none, "a"), -1);
    EXPECT_EQ(LiString::compare("a", none), 1);
}

TEST(LiString, HasAllComparisonsOnBothSides)
{
    LiString const a("a");
    LiString const b("b");
    char const * const none = nullptr;
    EXPECT_TRUE(a == LiString("a") && a != b && a < b && b > a && a <= b && b >= a);
    EXPECT_TRUE(a == "a" && "a" == a && a != "b" && "b" != a);
    EXPECT_TRUE(a < "b" && "a" < b && b > "a" && "b" > a);
    EXPECT_TRUE(a <= "a" && "a" <= a && a >= "a" && "a" >= a);
    EXPECT_TRUE(LiString() == none && a != none && a > none && none < a);
    EXPECT_TRUE(LiString("\x80") > a);
}

TEST(LiString, IsMadeOfAViewAndGivesOne)
{
    using namespace std::string_view_literals;
    LiString const string("a\0b"sv);
    EXPECT_EQ(string.getLength(), 3);
    std::string_view const view = string;
    EXPECT_EQ(view, "a\0b"sv);
    EXPECT_EQ(view.data(), string.getChars()) << "nothing is copied";
    EXPECT_EQ(std::string(string), std::string("a\0b", 3));
    EXPECT_EQ(LiString(std::string("xyz")), "xyz");
    EXPECT_EQ(LiString(std::string_view()).getChars(), LiString().getChars());

    auto const lengthOf = [](LiString const &any) { return any.getLength(); };
    auto const sizeOf = [](std::string_view any) { return any.size(); };
    EXPECT_EQ(lengthOf("ab"sv), 2);
    EXPECT_EQ(sizeOf(LiString("ab")), 2u);
}

TEST(LiString, TakesANewValueFromAViewOfItself)
{
    LiString string("abcdef");
    string = std::string_view(string).substr(2, 3);
    EXPECT_EQ(string, "cde");
    string += std::string_view(string).substr(1);
    EXPECT_EQ(string, "cdede");
}

TEST(LiString, AppendsViewsWithTheirZeroBytes)
{
    using namespace std::string_view_literals;
    LiString string("x");
    string += "a\0b"sv;
    string += ""sv;
    string += std::string("y");
    EXPECT_EQ(std::string_view(string), "xa\0by"sv);
    EXPECT_EQ(std::string_view(LiString("x") + "\0y"sv), "x\0y"sv);
    EXPECT_EQ(std::string_view("\0y"sv + LiString("x")), "\0yx"sv);
    std::string_view const endless("", std::numeric_limits<std::size_t>::max() / 4 * 3);
    EXPECT_THROW(string += endless, std::length_error);
    EXPECT_THROW(LiString{endless}, std::length_error);
    EXPECT_EQ(string.getLength(), 5);
}

TEST(LiString, EqualsAViewByAllBytesAndATextUpToItsZeroByte)
{
    using namespace std::string_view_literals;
    LiString const string("a\0b"sv);
    EXPECT_TRUE(string == "a\0b"sv && "a\0b"sv == string);
    EXPECT_TRUE(string != "a\0c"sv && "a"sv != string);
    EXPECT_TRUE(string == std::string("a\0b", 3) && std::string("a") != string);
    EXPECT_TRUE(string == "a" && "a" == string) << "a char const * ends at its zero byte";
}

TEST(LiString, OrdersByBytesUpToTheFirstZeroByteOfEither)
{
    using namespace std::string_view_literals;
    LiString const string("b\0x"sv);
    for (std::string_view const view : {"a"sv, "ac"sv, ""sv, "b"sv, "b\0a"sv, "bb"sv, "\x80"sv}) {
        LiString const other(view);
        EXPECT_EQ(string <=> view, string <=> other) << other;
        EXPECT_EQ(view <=> string, other <=> string) << other;
    }
    EXPECT_TRUE(string < "c"sv && "a"sv < string && string >= "b"sv && string <= "b"sv);
    EXPECT_TRUE(LiString("\x80") > "a"sv && LiString("b") > "ab\0"sv);
}

TEST(LiString, EqualStringsHaveEqualHashes)
{
    using namespace std::string_view_literals;
    std::hash<LiString> const hash;
    LiString const string("a\0b"sv);
    LiString shared(string);
    shared += 'c';
    shared = std::string_view(shared).substr(0, 3);
    EXPECT_EQ(string, shared);
    EXPECT_EQ(hash(string), hash(shared));
    EXPECT_NE(hash(string), hash("a"sv)) << "bytes behind a zero byte count in both";
    EXPECT_FALSE(string == LiString("a"));
}

TEST(LiString, IsARangeOfItsBytes)
{
    using namespace std::string_view_literals;
    static_assert(std::ranges::contiguous_range<LiString const>);
    static_assert(std::ranges::sized_range<LiString const>);
    LiString const string("a\0b"sv);
    std::string bytes;
    for (char const c : string)
        bytes += c;
    EXPECT_EQ(bytes, std::string("a\0b", 3));
    EXPECT_EQ(std::ranges::size(string), 3u);
    EXPECT_EQ(std::ranges::count(string, '\0'), 1);
    LiString const empty;
    EXPECT_EQ(empty.begin(), empty.end());
}

TEST(LiString, Adds)
{
    LiString const a("a");
    EXPECT_STREQ((a + LiString("b")).getChars(), "ab");
    EXPECT_STREQ((a + "b").getChars(), "ab");
    EXPECT_STREQ(("b" + a).getChars(), "ba");
    char const * const none = nullptr;
    EXPECT_STREQ((none + a).getChars(), "a");
    EXPECT_STREQ((a + none).getChars(), "a");
    EXPECT_STREQ(a.getChars(), "a");
}

TEST(LiString, IsAKeyOfHashMaps)
{
    HashMap<LiString, int> map;
    map["one"] = 1;
    map[LiString("two")] = 2;
    EXPECT_EQ(map.at("one"), 1);
    EXPECT_EQ(map.at("two"), 2);
    EXPECT_EQ(map.end(), map.find("three"));
}

TEST(LiString, WritesItsCharacters)
{
    std::ostringstream stream;
    stream << LiString("ab") << LiString() << LiString("c");
    EXPECT_EQ(stream.str(), "abc");
}

TEST(LiString, ReadsOneWord)
{
    std::istringstream stream("  one\ttwo \n");
    LiString word("before");
    ASSERT_TRUE(stream >> word);
    EXPECT_STREQ(word.getChars(), "one");
    ASSERT_TRUE(stream >> word);
    EXPECT_STREQ(word.getChars(), "two");
    EXPECT_FALSE(stream >> word);
    EXPECT_STREQ(word.getChars(), "two");
}

TEST(LiString, ReadsAWordOfAnyLength)
{
    for (std::size_t length : {1U, 255U, 256U, 257U, 511U, 512U, 513U, 1000U}) {
        std::string const expected(length, 'w');
        for (char const *end : {"", " ", "\n next"}) {
            std::istringstream stream(" " + expected + end);
            LiString word;
            EXPECT_TRUE(stream >> word) << length << '"' << end << '"';
            EXPECT_EQ(word.getChars(), expected);
        }
    }
}

TEST(LiString, ManyThreadsShareABody)
{
    LiString const shared("shared by all");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&shared] {
            for (int round = 0; round < 500; ++round) {
                LiString copy(shared);
                LiString const other(copy);
                copy += 'x';
                EXPECT_EQ(shared.getLength() + 1, copy.getLength());
                EXPECT_EQ(shared, other);
                LiString empty;
                empty += copy;
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_STREQ(shared.getChars(), "shared by all");
    EXPECT_TRUE(LiString().isEmpty());
}

} // namespace
TEST(LiString, BytesAreTakenAsTheyAre)
{
    LiString const zero("a\0b", 3);
    EXPECT_EQ(zero.getLength(), 3);
    EXPECT_EQ(zero[1], '\0');
    EXPECT_EQ(zero[2], 'b');
    EXPECT_EQ(zero.getChars()[3], '\0');
    EXPECT_EQ(LiString("abc", 0).getChars(), LiString().getChars());
    EXPECT_EQ(LiString(nullptr, 0).getChars(), LiString().getChars());
    EXPECT_STREQ(LiString("abc", 2).getChars(), "ab");
    char const byte = 'a';
    EXPECT_THROW(LiString(&byte, std::size_t{1} << 31), std::length_error);
}

TEST(LiString, AssignedBytesReuseAnUnsharedBody)
{
    LiString s("abcdef");
    char const * const body = s.getChars();
    s.assign("xyz", 3);
    EXPECT_EQ(s.getChars(), body);
    EXPECT_STREQ(s.getChars(), "xyz");
    EXPECT_EQ(s.getLength(), 3);
    s.assign(s.getChars() + 1, 2);
    EXPECT_STREQ(s.getChars(), "yz");

    LiString const shared(s);
    s.assign("123", 3);
    EXPECT_STREQ(shared.getChars(), "yz");
    EXPECT_STREQ(s.getChars(), "123");
    s.assign(s.getChars() + 1, 2);
    EXPECT_STREQ(s.getChars(), "23");

    s.assign("no room for so much", 19);
    EXPECT_STREQ(s.getChars(), "no room for so much");
    s.assign("", 0);
    EXPECT_EQ(s.getChars(), LiString().getChars());
}

TEST(LiString, AShortTextDoesNotKeepTheRoomOfALongOne)
{
    LiString s(std::string(10000, 'x').c_str());
    char const * const longBody = s.getChars();
    s.assign("short", 5);
    EXPECT_NE(s.getChars(), longBody);
    EXPECT_STREQ(s.getChars(), "short");
}

} // namespace ZvTest
