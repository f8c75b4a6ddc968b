#include "lineBuffer.h"

#include "playoutEx.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

LineBuffer::LineBuffer(std::string const &path)
{
    errno = std::filesystem::is_directory(path) ? EISDIR : 0;
    if (errno == 0)
        _file.open(path, std::ios::binary);
    if (!_file.is_open())
        ZV_THROW(PlayoutEx::Input, path.c_str(), std::strerror(errno));
}

std::streamsize LineBuffer::xsgetn(char *block, std::streamsize size)
{
    if (_rest.empty()) {
        if (!std::getline(_file, _rest))
            return 0;
        _rest += '\n';
        ++_line;
    }
    auto const count = std::min(_rest.size(), static_cast<std::size_t>(size));
    std::fill(std::copy_n(_rest.begin(), count, block), block + size, ' ');
    _rest.erase(0, count);
    return size;
}
