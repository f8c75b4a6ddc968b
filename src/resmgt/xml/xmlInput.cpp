#include "resmgt/xml/xmlInput.private.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <new>

namespace Zv {

namespace {

/// Zeroes the margin, so that no uninitialised byte is read.
char *allocate(std::size_t capacity)
{
    char * const buffer = new (std::nothrow) char[capacity + XmlInput::MARGIN]();
    if (!buffer) {
        std::fputs("out of dynamic memory in yy_create_buffer()\n", stderr);
        std::exit(2);
    }
    return buffer;
}

} // namespace

XmlInput::XmlInput(std::istream &stream)
    : _stream(stream), _capacity(BLOCK), _buffer(allocate(BLOCK)), _limit(_buffer)
{}

XmlInput::~XmlInput()
{
    delete[] _buffer;
}

bool XmlInput::more(char const *&kept)
{
    if (_ended)
        return false;
    auto const keptSize = static_cast<std::size_t>(_limit - kept);
    if (keptSize + BLOCK > _capacity)
        grow(keptSize, kept);
    else if (keptSize != 0 && kept != _buffer)
        std::memmove(_buffer, kept, keptSize);
    kept = _buffer;
    std::size_t const added = read(_buffer + keptSize);
    _limit = _buffer + keptSize + added;
    *_limit = '\0';
    return added != 0;
}

void XmlInput::grow(std::size_t keptSize, char const *kept)
{
    std::size_t const capacity = 2 * _capacity + BLOCK;
    char * const buffer = allocate(capacity);
    std::memcpy(buffer, kept, keptSize);
    delete[] _buffer;
    _buffer = buffer;
    _capacity = capacity;
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
