// A file that appears only when it is complete.
#pragma once

#include <sndfile.h>

#include <string>

/// Is written beside its place, under its path with ".part" behind it. `finish` and `commit` put it there, in place of
/// what was there before; a part that is destroyed without that is removed. If the path is a symbolic link, the file
/// that the link leads to is written.
///
/// The part is locked while it is written, so that no two processes write one file. A part that is not locked was left
/// behind by a process that was killed; it is replaced. One thread at a time.
class PartFile
{
public:
    /// Throws `PlayoutEx::Output` if there cannot be a file of that path, if the path leads to something that is not a
    /// regular file, and if another process is writing it.
    explicit PartFile(std::string const &path);
    PartFile(PartFile const &) = delete;
    PartFile &operator=(PartFile const &) = delete;
    ~PartFile();

    /// Returns the file that a path leads to: the path itself, or what the symbolic link there names, which need not
    /// exist. Throws `PlayoutEx::Output` if links lead in a circle.
    static std::string getTarget(std::string const &path);
    /// Returns the path under which the file is written.
    static std::string getPartPath(std::string const &path) { return getTarget(path) + ".part"; }

    /// The calls by which libsndfile writes; their context is this object.
    static SF_VIRTUAL_IO getCalls();
    /// The first failure of the system, as errno says it; 0 while there is none. libsndfile is not told of it and goes
    /// on; what it writes from then on goes nowhere.
    int getSystemError() const { return _systemError; }
    /// Appends text. Throws `PlayoutEx::Output`.
    void write(std::string const &text);
    /// Reads or writes bytes at an offset of what was written. Throws `PlayoutEx::Output`.
    std::string readAt(off_t offset, std::size_t count);
    void writeAt(off_t offset, std::string const &bytes);
    /// Brings everything to the disk. Nothing must be written after it. Throws `PlayoutEx::Output`.
    void finish();
    /// Puts the finished file in its place. Call it within a `Signals::Critical`. Throws `PlayoutEx::Output`; then the
    /// part is removed with this object.
    void commit();

private:
    template <class Result>
    Result noted(Result result);
    void throwIfFailed() const;
    void open();
    bool makeAndLock();
    void removeLeftOver() const;
    void close();

    std::string _path;
    std::string _target;
    std::string _partPath;
    int _descriptor = -1;
    int _systemError = 0;
    int _number = -1; // of the part among the files to be removed
};
