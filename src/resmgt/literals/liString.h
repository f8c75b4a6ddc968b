// String: a small value with a shared body (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liStringEx.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <new>
#include <string_view> // std::hash
#include <utility>

namespace Zv {

/// Body that strings share. Only `LiString` uses it, and changes it only if it is the one holder.
class ZVRESMGT_EXPORT LiStringImp : public RCBase<LkCounter<long>>
{
private:
    friend class LiString;

    /// Returns a body of `length` bytes, which the caller fills, with room for `capacity` bytes and
    /// the terminator. The body lies behind its characters, in one array with them.
    static LiStringImp *make(std::int32_t length, std::int32_t capacity);
    /// Returns a body that takes over an array made with `new[]`.
    static LiStringImp *adopt(char *chars, std::int32_t length);

    LiStringImp(char *chars, std::int32_t length, std::int32_t capacity, bool inArray) noexcept;
    LiStringImp(LiStringImp const &) = delete;
    LiStringImp &operator=(LiStringImp const &) = delete;
    ~LiStringImp() noexcept(false) override;

    static void operator delete(LiStringImp *imp, std::destroying_delete_t);

    /// Hands the array out. The body cannot be used afterwards.
    char *releaseArray() noexcept { return std::exchange(_chars, nullptr); }

    std::int32_t _length;   // bytes before the terminator
    std::int32_t _capacity; // bytes that fit before the terminator
    bool _inArray;          // the body lies in the array of its characters
    char *_chars;           // capacity + 1 bytes, always terminated
};

/// String of bytes with a zero byte behind them.
///
///     #include <cstdio>
///
///     Zv::LiString name("camera");
///     name += " 1";
///     for (char const c : name)
///         std::putchar(c);
///     bool const isFirst = name == "camera 1"; // true
///
/// A string is one counted pointer to a body that all its copies share. A change makes the body
/// private first, so that no other string sees it. A copy costs one atomic increment, a move
/// nothing.
///
/// The bytes have no encoding. Positions and lengths count bytes. A string may contain zero bytes.
/// Everything that takes or gives a `char const *` ends at the first of them. Everything with a
/// length or a `std::string_view` has all bytes.
///
/// **Threads**: a value. That holds also for strings that share a body.
///
/// **Throws** `std::length_error` if the string would have 2^31 - 1 bytes or more. After an
/// exception the string has its old value. If a string was moved from, you may destroy it, copy it,
/// and give it a new value by `=`, `assign` or `>>`. Every other use **throws** `RCEx::ExNullPtr`.
///
/// **Owns** its bytes. What `getChars`, `begin`, `end` and the conversion to a view return is valid
/// while a string with this body exists and has not been changed.
class ZVRESMGT_EXPORT LiString
{
public:
    /// Becomes the empty string. All strings that this constructor, a null or empty text, or a
    /// range of length 0 make empty share one body.
    LiString();
    /// Copies a text up to its zero byte. A null pointer gives the empty string.
    LiString(char const *text);
    /// Copies `length` bytes, zero bytes among them. `bytes` may be null if `length` is 0.
    LiString(char const *bytes, std::size_t length);
    /// Copies all bytes of a view, zero bytes among them.
    LiString(std::string_view bytes) : LiString(bytes.data(), bytes.size()) {}
    LiString(LiString const &) = default;
    LiString(LiString &&) noexcept = default;
    /// Copies `length` bytes of `source` from position `start`. A length of 0 gives the empty
    /// string for every `start`. **Throws** `LiStringEx::ExOutOfBounds` if the range is not in
    /// `source`.
    LiString(LiString const &source, int start, int length);
    /// Takes the array over without copying it, and measures it up to its zero byte. Null gives the
    /// empty string.
    LiString(ArrayPtr<char> chars);
    /// Copies the text of the stream up to its first zero byte.
    LiString(std::ostringstream &stream);
    ~LiString() noexcept = default;

    LiString &operator=(LiString const &) = default;
    LiString &operator=(LiString &&) noexcept = default;
    /// Copies a text up to its zero byte. A null pointer gives the empty string.
    LiString &operator=(char const *text);

    /// Copies `length` bytes, zero bytes among them. They may be the string's own. Use it for a
    /// string that is filled many times: if no other string shares the body and its size is about
    /// right, the body is used again.
    void assign(char const *bytes, std::size_t length);

    /// Appends all bytes of a string, which may be this one.
    LiString &operator+=(LiString const &tail);
    /// Appends a text up to its zero byte. A null pointer appends nothing.
    LiString &operator+=(char const *tail);
    /// Appends one byte.
    LiString &operator+=(char tail);
    /// Appends all bytes of a view, zero bytes among them. They may be the string's own.
    LiString &operator+=(std::string_view tail);

    /// Replaces one byte. **Throws** `LiStringEx::ExOutOfBounds` if `index` is no position of the
    /// string.
    void replace(int index, char c);
    /// Overwrites as many bytes as `part` has, from `index` on. The length stays. An empty `part`
    /// changes nothing. **Throws** `LiStringEx::ExOutOfBounds` if `part` does not fit: the
    /// exception names the position of its last byte, or `index` if that is negative.
    void replace(int index, LiString const &part);

    /// Returns one byte. **Throws** `LiStringEx::ExOutOfBounds` if `index` is no position of the
    /// string.
    char operator[](int index) const;
    /// Returns the bytes with a zero byte behind them.
    char const *getChars() const { return body()._chars; }
    /// Converts to a view of all bytes, zero bytes among them.
    operator std::string_view() const
    {
        return {getChars(), static_cast<std::size_t>(getLength())};
    }
    /// Returns a pointer to the first byte.
    char const *begin() const { return getChars(); }
    /// Returns a pointer to the zero byte behind the last byte.
    char const *end() const { return getChars() + getLength(); }
    /// Returns the number of bytes, without the zero byte behind them.
    int getLength() const { return body()._length; }
    /// Returns true if the length is 0.
    bool isEmpty() const { return getLength() == 0; }

    /// Returns the first position of a text, or -1. An empty or null text is found at 0. The search
    /// ends at the first zero byte.
    int find(char const *text) const;
    /// As with a `char const *`.
    int find(LiString const &text) const;
    /// Returns true if `find` finds the text.
    bool has(char const *text) const { return find(text) >= 0; }
    /// As with a `char const *`.
    bool has(LiString const &text) const { return find(text) >= 0; }
    /// Returns true if the string begins with `prefix`. The comparison ends at the first zero byte.
    bool hasPrefix(LiString const &prefix) const;

    /// Returns the hash over all bytes: h * 5 + c for each byte c, taken as signed, in 32 bits. The
    /// upper half is 0. The empty string has 0. Equal strings have equal hashes.
    std::uint64_t hash() const;
    /// Converts to the hash.
    explicit operator std::uint64_t() const { return hash(); }

    /// Returns the characters, which the caller owns, and leaves the empty string.
    [[nodiscard]] ArrayPtrRet<char> releaseChars();

    /// Compares unsigned bytes up to the first zero byte. Returns -1, 0 or 1. A null pointer counts
    /// as the empty string.
    static int compare(char const *left, char const *right);
    /// Returns the body of the empty strings. It is created at the first call and never destroyed.
    static LiStringImp *getEmptyImp();

    /// Compares all bytes, zero bytes among them.
    friend bool operator==(LiString const &left, LiString const &right)
    {
        return left.equals(right);
    }
    /// Compares all bytes with those of a view, zero bytes among them.
    friend bool operator==(LiString const &left, std::string_view right)
    {
        return static_cast<std::string_view>(left) == right;
    }
    /// Compares as `compare` does, up to the first zero byte.
    friend bool operator==(LiString const &left, char const *right)
    {
        return compare(left.getChars(), right) == 0;
    }
    /// Orders as `compare` does. Strings that differ only behind a zero byte are equivalent, but
    /// not equal.
    friend std::weak_ordering operator<=>(LiString const &left, LiString const &right)
    {
        return compare(left.getChars(), right.getChars()) <=> 0;
    }
    /// Orders as `compare` does. A zero byte ends the view as well.
    friend std::weak_ordering operator<=>(LiString const &left, std::string_view right)
    {
        return left.order(right) <=> 0;
    }
    /// Orders as `compare` does.
    friend std::weak_ordering operator<=>(LiString const &left, char const *right)
    {
        return compare(left.getChars(), right) <=> 0;
    }

    /// Returns the two strings joined.
    friend LiString operator+(LiString left, LiString const &right)
    {
        left += right;
        return left;
    }
    /// Returns the string and all bytes of the view joined.
    friend LiString operator+(LiString left, std::string_view right)
    {
        left += right;
        return left;
    }
    /// Returns the two texts joined. A null pointer counts as the empty string.
    friend LiString operator+(LiString left, char const *right)
    {
        left += right;
        return left;
    }
    /// Returns the two texts joined. A null pointer counts as the empty string.
    friend LiString operator+(char const *left, LiString const &right)
    {
        LiString sum(left);
        sum += right;
        return sum;
    }

private:
    LiStringImp &body() const { return *_imp; }
    bool equals(LiString const &other) const;
    int order(std::string_view bytes) const;
    void append(char const *bytes, std::int64_t length);
    /// Throws unless `index` is a position of a string of `length` bytes.
    static void checkBounds(std::int64_t index, int length);
    void makePrivate();

    RCShdPtr<LiStringImp> _imp;
};

/// Writes the characters up to the first zero byte.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream, LiString const &string);
/// Reads one word of any length. Skips white space before it; a zero byte is part of the word.
/// `string` keeps its value if nothing was read.
ZVRESMGT_EXPORT std::istream &operator>>(std::istream &stream, LiString &string);

} // namespace Zv

/// Agrees with `==` of two strings.
template <>
struct std::hash<Zv::LiString>
{
    std::size_t operator()(Zv::LiString const &string) const
    {
        return static_cast<std::size_t>(string.hash());
    }
};
