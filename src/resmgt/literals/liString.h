// The string of the system.
#pragma once

#include "resmgt/literals/liStringEx.h"
#include "resmgt/literals/liStringImp.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string_view>

namespace Zv {

/// A small value: one counted pointer to a body that all copies share. A change makes the body private first, so
/// that no other string sees it. Copying costs one atomic increment, moving none.
///
/// The contents are bytes with a zero byte behind them; no encoding is implied. Positions and lengths are bytes.
///
/// Strings that share a body may be used by different threads; one string object is for one thread at a time. Nothing
/// here blocks. A string that was moved from can be destroyed, copied, and given a new value by any form of `=`, by
/// `assign` or by `>>`. A copy of it is like it. Each other use throws `RCEx::ExNullPtr`. An operation that throws
/// changes nothing. A string of 2^31 - 1 bytes or more is refused with
/// `std::length_error`.
class ZVRESMGT_EXPORT LiString
{
public:
    /// The empty string. All strings made empty by this, by a null or empty text or by a range of length 0 share one
    /// body.
    LiString();
    /// A copy of the text up to its zero byte.
    LiString(char const *text);
    /// A copy of `length` bytes, zero bytes among them. Null for none.
    LiString(char const *bytes, std::size_t length);
    /// A copy of the view's bytes, zero bytes among them.
    LiString(std::string_view bytes) : LiString(bytes.data(), bytes.size()) {}
    LiString(LiString const &) = default;
    LiString(LiString &&) noexcept = default;
    /// The `length` bytes of `source` from `start`. Throws `LiStringEx::ExOutOfBounds` where they do not lie in
    /// `source`; a length of 0 yields the empty string wherever it starts.
    LiString(LiString const &source, int start, int length);
    /// Takes the array over, with no copying, and measures it; null gives the empty string.
    LiString(ArrayPtr<char> chars);
    /// A copy of the stream's text up to its first zero byte.
    LiString(std::ostringstream &stream);
    ~LiString() noexcept = default;

    LiString &operator=(LiString const &) = default;
    LiString &operator=(LiString &&) noexcept = default;
    LiString &operator=(char const *text);

    /// Takes on a copy of `length` bytes, zero bytes among them; they may be the string's own. Uses its body again
    /// where nobody shares it and its room is about right: for a string that is filled over and over.
    void assign(char const *bytes, std::size_t length);

    LiString &operator+=(LiString const &tail);
    /// A null pointer adds nothing.
    LiString &operator+=(char const *tail);
    LiString &operator+=(char tail);
    /// Adds all bytes of the view, zero bytes among them. They may be the string's own.
    LiString &operator+=(std::string_view tail);

    /// Sets one byte. Throws `LiStringEx::ExOutOfBounds`.
    void replace(int index, char c);
    /// Overwrites as many bytes as `part` has, from `index`. The length stays: throws `LiStringEx::ExOutOfBounds` where
    /// they do not fit, with the position of the last byte, or a negative `index`. An empty `part` does nothing.
    void replace(int index, LiString const &part);

    /// Throws `LiStringEx::ExOutOfBounds`.
    char operator[](int index) const;
    /// Valid as long as one string with this body lives, and until that string changes.
    char const *getChars() const { return body()._chars; }
    /// All bytes, zero bytes among them. Valid as long as what `getChars` returns.
    operator std::string_view() const
    {
        return {getChars(), static_cast<std::size_t>(getLength())};
    }
    /// The bytes one by one, zero bytes among them. Valid as long as what `getChars` returns.
    char const *begin() const { return getChars(); }
    char const *end() const { return getChars() + getLength(); }
    int getLength() const { return body()._length; }
    bool isEmpty() const { return getLength() == 0; }

    /// The first position of a text, or -1. An empty or null text is found at 0.
    int find(char const *text) const;
    int find(LiString const &text) const;
    bool has(char const *text) const { return find(text) >= 0; }
    bool has(LiString const &text) const { return find(text) >= 0; }
    bool hasPrefix(LiString const &prefix) const;

    /// h * 5 + c over all bytes, taken as signed, in 32 bits; the upper half is zero. The empty string hashes to 0.
    std::uint64_t hash() const;
    explicit operator std::uint64_t() const { return hash(); }

    /// Hands the characters out and leaves the empty string.
    [[nodiscard]] ArrayPtrRet<char> releaseChars();

    /// -1, 0 or 1. Compares unsigned bytes up to the first zero byte; a null pointer counts as the empty string.
    static int compare(char const *left, char const *right);
    /// The body of the empty strings; made at the first call and never destroyed.
    static LiStringImp *getEmptyImp();

    /// Two strings are equal when all their bytes are, zero bytes among them. Order, and any comparison with a
    /// `char const *`, is that of `compare`.
    friend bool operator==(LiString const &left, LiString const &right)
    {
        return left.equals(right);
    }
    friend bool operator==(LiString const &left, std::string_view right)
    {
        return static_cast<std::string_view>(left) == right;
    }
    friend bool operator==(LiString const &left, char const *right)
    {
        return compare(left.getChars(), right) == 0;
    }
    friend std::weak_ordering operator<=>(LiString const &left, LiString const &right)
    {
        return compare(left.getChars(), right.getChars()) <=> 0;
    }
    friend std::weak_ordering operator<=>(LiString const &left, std::string_view right)
    {
        return left.order(right) <=> 0;
    }
    friend std::weak_ordering operator<=>(LiString const &left, char const *right)
    {
        return compare(left.getChars(), right) <=> 0;
    }

    friend LiString operator+(LiString left, LiString const &right)
    {
        left += right;
        return left;
    }
    friend LiString operator+(LiString left, std::string_view right)
    {
        left += right;
        return left;
    }
    friend LiString operator+(LiString left, char const *right)
    {
        left += right;
        return left;
    }
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
/// Reads one word of any length. White space before it is skipped, a zero byte is part of it. `string` keeps its value
/// if nothing was read.
ZVRESMGT_EXPORT std::istream &operator>>(std::istream &stream, LiString &string);

} // namespace Zv

template <>
struct std::hash<Zv::LiString>
{
    std::size_t operator()(Zv::LiString const &string) const
    {
        return static_cast<std::size_t>(string.hash());
    }
};
