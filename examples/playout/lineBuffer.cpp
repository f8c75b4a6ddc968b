#include "lineBuffer.h"

#include "playoutEx.h"
#include "signals.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

LineBuffer::LineBuffer(std::string const &path)
{
    errno = std::filesystem::is_directory(path) ? EISDIR : 0;
    if (errno == 0)
        _file.open(path, std::ios::binary);
    if (!_file.is_open() && Signals::getCaught()) // while waiting for the other end of a pipe
        ZV_THROW(PlayoutEx::Interrupted);
    if (!_file.is_open())
        ZV_THROW(PlayoutEx::Input, path.c_str(), std::strerror(errno));
}

std::streamsize LineBuffer::xsgetn(char *block, std::streamsize size)
{
    if (_place == _text.size()) {
        if (!std::getline(_file, _text))
            return 0;
        _text += '\n';
        _place = 0;
        ++_line;
    }
    auto const count = std::min(_text.size() - _place, static_cast<std::size_t>(size));
    std::fill(std::copy_n(_text.data() + _place, count, block), block + size, ' ');
    _place += count;
    return size;
}
