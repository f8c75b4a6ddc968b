// A file that appears only when it is complete.
#pragma once

#include <sndfile.h>

#include <string>

/// Is written beside its place, under its path with ".part" behind it. `commit` puts it there, in place of what was
/// there before; a part that is destroyed without that is removed. One thread at a time.
class PartFile
{
public:
    /// Throws `PlayoutEx::Output` where there cannot be a file of that path, and where the part exists: another
    /// process is at work, or has left it there.
    explicit PartFile(std::string const &path);
    PartFile(PartFile const &) = delete;
    PartFile &operator=(PartFile const &) = delete;
    ~PartFile();

    /// The calls by which libsndfile writes; their context is this object.
    static SF_VIRTUAL_IO getCalls();
    /// The first failure of the system, as errno says it; 0 while there is none. libsndfile is not told of it and goes
    /// on; what it writes from then on goes nowhere.
    int getSystemError() const { return _systemError; }
    /// Appends text. Throws `PlayoutEx::Output`.
    void write(std::string const &text);
    /// Closes the file and puts it in its place. Throws `PlayoutEx::Output`; then the part is removed with this object.
    void commit();

private:
    template <class Result>
    Result noted(Result result);
    void throwIfFailed() const;

    std::string _path;
    std::string _partPath;
    int _descriptor = -1;
    int _systemError = 0;
};
