#include "resmgt/literals/liString.h"

#include "zvbase/failures.h"
#include "zvbase/platform/shared.h"

#include <algorithm>
#include <cstring>
#include <istream>
#include <limits>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace Zv {

namespace {

// One less than the largest number, so that the size with the terminator is a number as well.
constexpr std::int64_t MAX_LENGTH = std::numeric_limits<std::int32_t>::max() - 1;

// Keeps the empty body alive. It is never destroyed, because threads may outlive `main`.
constinit ZvPlatform::Shared<RCShdPtr<LiStringImp> *> emptyHolder{nullptr};

// How much room of a body may stay unused when the body is filled again.
constexpr std::size_t SPARE_ROOM = 64;

std::int32_t checkedLength(std::int64_t length)
{
    if (length > MAX_LENGTH)
        throw std::length_error("LiString");
    return static_cast<std::int32_t>(length);
}

std::int32_t measure(char const *text)
{
    return checkedLength(static_cast<std::int64_t>(std::strlen(text)));
}

} // namespace

LiStringImp::LiStringImp(char *chars, std::int32_t length, std::int32_t capacity,
                         bool inArray) noexcept
    : _length(length), _capacity(capacity), _inArray(inArray), _chars(chars)
{}

LiStringImp::~LiStringImp() noexcept(false) = default;

LiStringImp *LiStringImp::make(std::int32_t length, std::int32_t capacity)
{
    constexpr std::size_t ALIGNMENT = alignof(LiStringImp);
    static_assert(ALIGNMENT <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    std::size_t const room =
        (static_cast<std::size_t>(capacity) + ALIGNMENT) / ALIGNMENT * ALIGNMENT;
    char * const chars = new char[room + sizeof(LiStringImp)];
    chars[length] = '\0';
    return ::new (static_cast<void *>(chars + room)) LiStringImp(chars, length, capacity, true);
}

LiStringImp *LiStringImp::adopt(char *chars, std::int32_t length)
{
    return ::new LiStringImp(chars, length, length, false);
}

void LiStringImp::operator delete(LiStringImp *imp, std::destroying_delete_t)
{
    char * const chars = imp->_chars;
    bool const inArray = imp->_inArray;
    imp->~LiStringImp();
    if (!inArray)
        ::operator delete(imp);
    delete[] chars;
}

LiStringImp *LiString::getEmptyImp()
{
    RCShdPtr<LiStringImp> *holder = emptyHolder.load(ZvPlatform::Order::ACQUIRE);
    if (!holder) [[unlikely]] {
        ObjPtr<RCShdPtr<LiStringImp>> fresh(new RCShdPtr<LiStringImp>(LiStringImp::make(0, 0)));
        if (emptyHolder.compare_exchange_strong(holder, fresh.get(), ZvPlatform::Order::RELEASE,
                                                ZvPlatform::Order::ACQUIRE))
            holder = fresh.release();
    }
    return holder->operator->();
}

LiString::LiString() : _imp(getEmptyImp()) {}

LiString::LiString(char const *text) : LiString()
{
    *this = text;
}

LiString::LiString(char const *bytes, std::size_t length) : LiString()
{
    assign(bytes, length);
}

LiString::LiString(LiString const &source, int start, int length) : LiString()
{
    if (length == 0)
        return;
    LiStringImp const &from = source.body();
    checkBounds(start, from._length);
    if (length < 0)
        ZV_THROW(LiStringEx::ExOutOfBounds, length, 0, from._length);
    checkBounds(std::int64_t{start} + length - 1, from._length);
    RCShdPtr<LiStringImp> imp(LiStringImp::make(length, length));
    std::memcpy(imp->_chars, from._chars + start, static_cast<std::size_t>(length));
    _imp = std::move(imp);
}

LiString::LiString(ArrayPtr<char> chars) : LiString()
{
    if (chars.isNull())
        return;
    _imp = RCShdPtr<LiStringImp>(LiStringImp::adopt(chars.get(), measure(chars.get())));
    static_cast<void>(chars.release());
}

LiString::LiString(std::ostringstream &stream) : LiString(stream.str().c_str()) {}

LiString &LiString::operator=(char const *text)
{
    RCShdPtr<LiStringImp> imp(getEmptyImp());
    if (text && *text) {
        std::int32_t const length = measure(text);
        imp = RCShdPtr<LiStringImp>(LiStringImp::make(length, length));
        std::memcpy(imp->_chars, text, static_cast<std::size_t>(length));
    }
    _imp = std::move(imp);
    return *this;
}

void LiString::assign(char const *bytes, std::size_t length)
{
    if (length != 0 && _imp.isUnique()) {
        LiStringImp &present = body();
        auto const room = static_cast<std::size_t>(present._capacity);
        if (length <= room && room - length <= length + SPARE_ROOM) {
            std::memmove(present._chars, bytes, length);
            present._chars[length] = '\0';
            present._length = static_cast<std::int32_t>(length);
            return;
        }
    }
    if (length == 0) {
        _imp = RCShdPtr<LiStringImp>(getEmptyImp());
        return;
    }
    if (length > static_cast<std::size_t>(MAX_LENGTH))
        throw std::length_error("LiString");
    std::size_t const newRoom = std::max(length, SPARE_ROOM / 2);
    RCShdPtr<LiStringImp> imp(
        LiStringImp::make(static_cast<std::int32_t>(length), static_cast<std::int32_t>(newRoom)));
    std::memcpy(imp->_chars, bytes, length);
    _imp = std::move(imp);
}

LiString &LiString::operator+=(LiString const &tail)
{
    LiStringImp const &added = tail.body();
    append(added._chars, added._length);
    return *this;
}

LiString &LiString::operator+=(char const *tail)
{
    append(tail, tail ? measure(tail) : 0);
    return *this;
}

LiString &LiString::operator+=(char tail)
{
    append(&tail, 1);
    return *this;
}

LiString &LiString::operator+=(std::string_view tail)
{
    append(tail.data(), static_cast<std::int64_t>(std::min<std::size_t>(
                            tail.size(), static_cast<std::size_t>(MAX_LENGTH) + 1)));
    return *this;
}

// The bytes may be the string's own: they are copied before the old body is released.
void LiString::append(char const *bytes, std::int64_t length)
{
    LiStringImp &present = body();
    if (length == 0)
        return;
    std::int32_t const needed = checkedLength(present._length + length);
    auto const oldSize = static_cast<std::size_t>(present._length);
    auto const addedSize = static_cast<std::size_t>(length);
    if (_imp.isUnique() && needed <= present._capacity) {
        std::memmove(present._chars + oldSize, bytes, addedSize);
        present._chars[needed] = '\0';
        present._length = needed;
        return;
    }
    // A shared body counts with its exact size, as if it had been made private before.
    std::int64_t const room = _imp.isUnique() ? present._capacity : present._length;
    auto const capacity = static_cast<std::int32_t>(std::min(room + needed, MAX_LENGTH));
    RCShdPtr<LiStringImp> grown(LiStringImp::make(needed, capacity));
    std::memcpy(grown->_chars, present._chars, oldSize);
    std::memcpy(grown->_chars + oldSize, bytes, addedSize);
    _imp = std::move(grown);
}

void LiString::makePrivate()
{
    if (_imp.isUnique())
        return;
    LiStringImp const &shared = body();
    RCShdPtr<LiStringImp> copy(LiStringImp::make(shared._length, shared._length));
    std::memcpy(copy->_chars, shared._chars, static_cast<std::size_t>(shared._length));
    _imp = std::move(copy);
}

void LiString::checkBounds(std::int64_t index, int length)
{
    if (index >= 0 && index < length)
        return;
    // A sum of two positions may be too large for the report.
    auto const shown =
        static_cast<int>(std::min<std::int64_t>(index, std::numeric_limits<int>::max()));
    ZV_THROW(LiStringEx::ExOutOfBounds, shown, 0, length);
}

void LiString::replace(int index, char c)
{
    checkBounds(index, getLength());
    makePrivate();
    body()._chars[index] = c;
}

void LiString::replace(int index, LiString const &part)
{
    LiString const source(part); // keeps the bytes if `part` is this string
    if (source.isEmpty())
        return;
    checkBounds(std::int64_t{index} + source.getLength() - 1, getLength());
    checkBounds(index, getLength());
    makePrivate();
    std::memcpy(body()._chars + index, source.getChars(),
                static_cast<std::size_t>(source.getLength()));
}

char LiString::operator[](int index) const
{
    checkBounds(index, getLength());
    return body()._chars[index];
}

int LiString::find(char const *text) const
{
    char const * const chars = getChars();
    char const * const found = std::strstr(chars, text ? text : "");
    return found ? static_cast<int>(found - chars) : -1;
}

int LiString::find(LiString const &text) const
{
    return find(text.getChars());
}

bool LiString::hasPrefix(LiString const &prefix) const
{
    return std::strncmp(getChars(), prefix.getChars(),
                        static_cast<std::size_t>(prefix.getLength())) == 0;
}

std::uint64_t LiString::hash() const
{
    LiStringImp const &imp = body();
    std::uint32_t h = 0;
    for (char const *c = imp._chars; c != imp._chars + imp._length; ++c)
        h = h * 5 + static_cast<std::uint32_t>(static_cast<signed char>(*c));
    return h;
}

ArrayPtrRet<char> LiString::releaseChars()
{
    RCShdPtr<LiStringImp> empty(getEmptyImp());
    makePrivate();
    ArrayPtrRet<char> chars(body().releaseArray());
    _imp = std::move(empty);
    return chars;
}

int LiString::compare(char const *left, char const *right)
{
    int const order = std::strcmp(left ? left : "", right ? right : "");
    return (order > 0) - (order < 0);
}

bool LiString::equals(LiString const &other) const
{
    LiStringImp const &left = body();
    LiStringImp const &right = other.body();
    return &left == &right ||
           (left._length == right._length &&
            std::memcmp(left._chars, right._chars, static_cast<std::size_t>(left._length)) == 0);
}

/// Compares as `compare` does: the first zero byte ends either of the two.
int LiString::order(std::string_view bytes) const
{
    std::string_view const text(getChars());
    int const order = text.compare(bytes.substr(0, bytes.find('\0')));
    return (order > 0) - (order < 0);
}

std::ostream &operator<<(std::ostream &stream, LiString const &string)
{
    return stream << string.getChars();
}

std::istream &operator>>(std::istream &stream, LiString &string)
{
    std::string word;
    stream.width(0); // no word is too long
    if (stream >> word)
        string = LiString(word.data(), word.size());
    return stream;
}

} // namespace Zv
