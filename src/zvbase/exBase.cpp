#include "zvbase/exBase.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace Zv {

namespace {

std::size_t fitting(int written, std::size_t room)
{
    return std::min(static_cast<std::size_t>(std::max(written, 0)), room);
}

} // namespace

ExBase::ExBase(char const *file, int line) noexcept
    : _file(file), _line(line), _siteLength(0), _length(0)
{
    int const written = std::snprintf(_text, SITE_CAPACITY, "%s(%d): ", file ? file : "", line);
    _siteLength = fitting(written, SITE_CAPACITY - 1);
    _text[_siteLength] = '\0';
}

ExBase::ExBase(ExBase const &other) noexcept
    : _file(other._file), _line(other._line), _siteLength(other._siteLength), _length(other._length)
{
    std::memcpy(_text, other._text, _siteLength + _length + 1);
}

ExBase &ExBase::operator=(ExBase const &other) noexcept
{
    if (this != &other) {
        _file = other._file;
        _line = other._line;
        _siteLength = other._siteLength;
        _length = other._length;
        std::memcpy(_text, other._text, _siteLength + _length + 1);
    }
    return *this;
}

ExBase::~ExBase() = default;

char const *ExBase::getReason() const noexcept
{
    return _text + _siteLength;
}

char const *ExBase::getDetailedReason() const noexcept
{
    return _text;
}

void ExBase::setReason(char const *text) noexcept
{
    formatReason("%s", text ? text : "");
}

void ExBase::formatReason(char const *format, ...) noexcept
{
    std::size_t const room = REASON_CAPACITY - _length;
    std::va_list arguments;
    va_start(arguments, format);
    int const written = std::vsnprintf(_text + _siteLength + _length, room + 1, format, arguments);
    va_end(arguments);
    _length += fitting(written, room);
}

} // namespace Zv
