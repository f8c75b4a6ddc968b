// Paths of files.
#pragma once

#include "zvbase/export.h"

#include <compare>
#include <cstddef>
#include <ostream>
#include <string>
#include <utility>

namespace Zv {

/// The path of a file as the system writes it. A value; nothing is looked up. Both '/' and, on Windows, '\\' part the
/// names.
class ZVBASE_EXPORT OsFilePath
{
public:
    OsFilePath() = default;
    explicit OsFilePath(std::string path) : _path(std::move(path)) {}

    std::string const &getPath() const noexcept { return _path; }
    bool isEmpty() const noexcept { return _path.empty(); }
    bool isAbsolute() const;
    /// What follows the last separator.
    std::string getName() const;
    /// What stands before the last separator: "/" for "/a", empty for "a".
    OsFilePath getDirectory() const;
    /// From the last dot of the name on, dot included; empty where there is none. A leading dot makes none.
    std::string getExtension() const;
    /// This directory's entry. An absolute path stands for itself.
    OsFilePath append(OsFilePath const &entry) const;

    friend bool operator==(OsFilePath const &, OsFilePath const &) = default;
    friend std::strong_ordering operator<=>(OsFilePath const &, OsFilePath const &) = default;

private:
    std::string _path;
};

ZVBASE_EXPORT std::ostream &operator<<(std::ostream &, OsFilePath const &);

} // namespace Zv
