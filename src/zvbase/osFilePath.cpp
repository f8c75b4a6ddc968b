#include "zvbase/osFilePath.h"

namespace Zv {

namespace {

#ifdef _WIN32
constexpr char SEPARATORS[] = "/\\";
#else
constexpr char SEPARATORS[] = "/";
#endif

} // namespace

bool OsFilePath::isAbsolute() const
{
#ifdef _WIN32
    if (_path.size() > 2 && _path[1] == ':' && _path.find_first_of(SEPARATORS, 2) == 2)
        return true;
#endif
    return _path.find_first_of(SEPARATORS) == 0;
}

std::string OsFilePath::getName() const
{
    return _path.substr(_path.find_last_of(SEPARATORS) + 1);
}

OsFilePath OsFilePath::getDirectory() const
{
    std::size_t const separator = _path.find_last_of(SEPARATORS);
    if (separator == _path.npos)
        return OsFilePath();
    return OsFilePath(_path.substr(0, separator == 0 ? 1 : separator));
}

std::string OsFilePath::getExtension() const
{
    std::string const name = getName();
    std::size_t const dot = name.rfind('.');
    return dot == name.npos || dot == 0 ? std::string() : name.substr(dot);
}

OsFilePath OsFilePath::append(OsFilePath const &entry) const
{
    if (isEmpty() || entry.isAbsolute())
        return entry;
    bool const isClosed = _path.find_last_of(SEPARATORS) == _path.size() - 1;
    return OsFilePath(_path + (isClosed ? "" : "/") + entry._path);
}

std::ostream &operator<<(std::ostream &stream, OsFilePath const &path)
{
    return stream << path.getPath();
}

} // namespace Zv
