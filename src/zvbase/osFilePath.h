// Paths of files (applications).
#pragma once

#include "zvbase/export.h"

#include <compare>
#include <cstddef>
#include <ostream>
#include <string>
#include <utility>

namespace Zv {

/// The path of a file or directory, as the system writes it. A value. No operation accesses the
/// file system. '/' separates names, and so does '\\' on Windows.
///
///     Zv::OsFilePath const directory("/media/clips");
///     Zv::OsFilePath const clip = directory.append(Zv::OsFilePath("intro.wav"));
///     std::string const extension = clip.getExtension(); // .wav
class ZVBASE_EXPORT OsFilePath
{
public:
    /// Constructs the empty path.
    OsFilePath() = default;
    /// Constructs the path that the text contains. Checks and changes nothing.
    explicit OsFilePath(std::string path) : _path(std::move(path)) {}

    std::string const &getPath() const noexcept { return _path; }
    bool isEmpty() const noexcept { return _path.empty(); }
    /// Returns true if the path begins at the root of the file system.
    bool isAbsolute() const;
    /// Returns the part behind the last separator.
    std::string getName() const;
    /// Returns the part before the last separator: "/" for "/a", the empty path for "a".
    OsFilePath getDirectory() const;
    /// Returns the part of the name from its last dot on, with the dot. Returns an empty text if
    /// there is no dot, or only one at the beginning.
    std::string getExtension() const;
    /// Returns the path of an entry of this directory. If `entry` is absolute, returns `entry`.
    OsFilePath append(OsFilePath const &entry) const;

    friend bool operator==(OsFilePath const &, OsFilePath const &) = default;
    friend std::strong_ordering operator<=>(OsFilePath const &, OsFilePath const &) = default;

private:
    std::string _path;
};

/// Writes the path as it is.
ZVBASE_EXPORT std::ostream &operator<<(std::ostream &, OsFilePath const &);

} // namespace Zv
