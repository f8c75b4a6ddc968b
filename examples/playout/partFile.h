// Output file that appears only when it is complete.
#pragma once

#include <sndfile.h>

#include <string>

/// Writes a file under its path with ".part" appended, the part. `finish` and `commit` rename it to
/// its path and replace the file there. If the object is destroyed without that, the part is
/// removed. If the path is a symbolic link, the file that the link leads to is written.
///
/// The part is locked while it is written, so that no two processes write one file. A part that is
/// not locked was left by a process that was killed, and is replaced. One thread at a time.
class PartFile
{
public:
    /// Throws `PlayoutEx::Output` if no file can be made or replaced at that path, if the path
    /// leads to something that is not a regular file, or if another process is writing it.
    explicit PartFile(std::string const &path);
    PartFile(PartFile const &) = delete;
    PartFile &operator=(PartFile const &) = delete;
    ~PartFile();

    /// Returns the file that a path leads to. This is the path itself, or the target of the
    /// symbolic link there, which need not exist. Throws `PlayoutEx::Output` if links form a
    /// circle.
    static std::string getTarget(std::string const &path);
    /// Returns the path under which the file is written.
    static std::string getPartPath(std::string const &path) { return getTarget(path) + ".part"; }

    /// Returns the functions by which libsndfile writes. Their context must be a pointer to a
    /// `PartFile`.
    static SF_VIRTUAL_IO getCalls();
    /// Returns the `errno` of the first system call that failed, 0 if none has failed. libsndfile
    /// is not told of a failed write. What it writes after that is dropped.
    int getSystemError() const { return _systemError; }
    /// Appends text. Throws `PlayoutEx::Output`.
    void write(std::string const &text);
    /// Returns up to `count` bytes of what was written, from `offset` on. Throws
    /// `PlayoutEx::Output`.
    std::string readAt(off_t offset, std::size_t count);
    /// Overwrites what was written from `offset` on. Throws `PlayoutEx::Output`.
    void writeAt(off_t offset, std::string const &bytes);
    /// Waits until everything is on the disk. Nothing must be written after that. Throws
    /// `PlayoutEx::Output`.
    void finish();
    /// Puts the finished file in its place. Call it while a `Signals::Critical` exists. Throws
    /// `PlayoutEx::Output`. In that case, the part is removed with this object.
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
    int _number = -1; // from `Signals::remember`
};
