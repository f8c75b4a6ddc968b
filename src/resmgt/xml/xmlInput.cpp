#include "resmgt/xml/xmlInput.private.h"

#include "resmgt/xml/xmlBlocks.private.h"
#include "zvbase/objPtr.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <new>

namespace Zv {

namespace {

/// The zero byte behind the window, and the bytes behind it that may be read.
constexpr std::size_t BEHIND = 1 + XmlBytes::MARGIN;

/// The text of a document is kept in pieces of this size or less, unless a name or a value is
/// larger.
constexpr std::size_t KEPT_PIECE = 4 * XmlInput::BLOCK;

char *checked(char *buffer)
{
    if (!buffer) {
        std::fputs("out of dynamic memory in yy_create_buffer()\n", stderr);
        std::exit(2);
    }
    return buffer;
}

char *allocate(std::size_t capacity)
{
    return checked(new (std::nothrow) char[capacity + BEHIND]);
}

} // namespace

XmlInput::XmlInput(std::istream &stream, XmlBlocks *keeper) : _stream(stream), _keeper(keeper)
{
    if (!keeper) {
        setBuffer(allocate(BLOCK), BLOCK);
        setLimit(_buffer);
        return;
    }
    // The size of a small text is known when it is read. Not more than that is kept.
    ArrayPtr<char> const first(allocate(BLOCK));
    std::size_t const size = read(first.get());
    std::size_t const capacity = _ended ? size : KEPT_PIECE;
    setBuffer(checked(keeper->allocateText(capacity + BEHIND)), capacity);
    std::memcpy(_buffer, first.get(), size);
    setLimit(_buffer + size);
}

XmlInput::~XmlInput()
{
    if (!_keeper)
        delete[] _buffer;
}

void XmlInput::setBuffer(char *buffer, std::size_t capacity)
{
    _buffer = buffer;
    _capacity = capacity;
}

void XmlInput::setLimit(char *limit)
{
    _limit = limit;
    std::memset(limit, 0, BEHIND);
}

bool XmlInput::more(char const *&needed)
{
    if (_ended)
        return false;
    auto const size = static_cast<std::size_t>(_limit - needed);
    makeRoom(needed, size);
    needed = _limit - size;
    std::size_t const added = read(_limit);
    setLimit(_limit + added);
    return added != 0;
}

void XmlInput::makeRoom(char const *needed, std::size_t size)
{
    if (_keeper) {
        if (_capacity - static_cast<std::size_t>(_limit - _buffer) >= BLOCK)
            return;
        std::size_t const capacity = std::max(KEPT_PIECE, 2 * size + BLOCK);
        setBuffer(checked(_keeper->allocateText(capacity + BEHIND)), capacity);
        std::memcpy(_buffer, needed, size);
    } else if (size + BLOCK > _capacity) {
        std::size_t const capacity = 2 * _capacity + BLOCK;
        char * const buffer = allocate(capacity);
        std::memcpy(buffer, needed, size);
        delete[] _buffer;
        setBuffer(buffer, capacity);
    } else if (needed != _buffer) { // a long text stays at the beginning
        std::memmove(_buffer, needed, size);
    }
    _limit = _buffer + size;
}

std::size_t XmlInput::read(char *target)
{
    try {
        _stream.read(target, BLOCK);
    } catch (std::ios_base::failure const &) {
        // A stream may be set to throw at its end. The bytes that it has read are valid.
    }
    auto const count = static_cast<std::size_t>(_stream.gcount());
    _ended = count < BLOCK;
    return count;
}

} // namespace Zv
