#include "partFile.h"

#include "playoutEx.h"
#include "signals.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

namespace {

constexpr int MOST_LINKS = 40; // the system's own limit

[[noreturn]] void refuse(std::string const &path, int error)
{
    ZV_THROW(PlayoutEx::Output, path.c_str(), std::strerror(error));
}

} // namespace

PartFile::PartFile(std::string const &path)
    : _path(path), _target(getTarget(path)), _partPath(_target + ".part")
{
    struct stat status = {};
    if (::stat(_target.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode))
            refuse(path, EISDIR);
        if (!S_ISREG(status.st_mode))
            ZV_THROW(PlayoutEx::Output, path.c_str(), "it is not a regular file");
        if (::access(_target.c_str(), W_OK) != 0)
            refuse(path, errno);
    }
    Signals::Critical const critical;
    open();
    _number = Signals::remember(_partPath, _descriptor);
}

PartFile::~PartFile()
{
    // If this part was removed meanwhile, the name may belong to another process.
    if (_descriptor >= 0 && Signals::isFileAt(_partPath.c_str(), _descriptor))
        std::remove(_partPath.c_str());
    close();
}

std::string PartFile::getTarget(std::string const &path)
{
    namespace fs = std::filesystem;
    fs::path target = path;
    std::error_code none;
    for (int i = 0; fs::is_symlink(target, none); ++i) {
        if (i == MOST_LINKS)
            refuse(path, ELOOP);
        fs::path const next = fs::read_symlink(target, none);
        if (none)
            refuse(path, none.value());
        target = target.parent_path() / next; // `next` alone if it is absolute
    }
    return target;
}

void PartFile::open()
{
    // Tries again, because another process may remove a part that was made and is not locked yet.
    while (!makeAndLock()) {
    }
}

/// Returns false if another process was faster.
bool PartFile::makeAndLock()
{
    _descriptor = ::open(_partPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (_descriptor < 0) {
        if (errno != EEXIST)
            refuse(_partPath, errno);
        removeLeftOver();
        return false;
    }
    bool const isLocked = ::flock(_descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
    if (isLocked && Signals::isFileAt(_partPath.c_str(), _descriptor))
        return true;
    ::close(std::exchange(_descriptor, -1));
    return false;
}

void PartFile::removeLeftOver() const
{
    int const descriptor =
        ::open(_partPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (descriptor < 0 && errno == ENOENT)
        return;
    struct stat status = {};
    bool const isRegular =
        descriptor >= 0 && ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    bool const isLocked = isRegular && ::flock(descriptor, LOCK_EX | LOCK_NB) == 0;
    bool const isBusy = isRegular && !isLocked && errno == EWOULDBLOCK;
    int error = isLocked || isBusy ? 0 : EEXIST;
    if (isLocked && Signals::isFileAt(_partPath.c_str(), descriptor) &&
        std::remove(_partPath.c_str()) != 0)
        error = errno;
    if (descriptor >= 0)
        ::close(descriptor);
    if (isBusy)
        ZV_THROW(PlayoutEx::Output, _path.c_str(), "another process is writing it");
    if (error)
        refuse(_partPath, error);
}

void PartFile::close()
{
    Signals::forget(std::exchange(_number, -1));
    if (_descriptor >= 0)
        ::close(std::exchange(_descriptor, -1));
}

template <class Result>
Result PartFile::noted(Result result)
{
    if (result < 0 && !_systemError)
        _systemError = errno;
    return result;
}

SF_VIRTUAL_IO PartFile::getCalls()
{
    auto const self = [](void *context) -> PartFile & { return *static_cast<PartFile *>(context); };
    static constexpr auto of = self;
    SF_VIRTUAL_IO calls = {};
    calls.get_filelen = [](void *context) -> sf_count_t {
        struct stat status = {};
        return of(context).noted(::fstat(of(context)._descriptor, &status)) ? -1 : status.st_size;
    };
    calls.seek = [](sf_count_t offset, int whence, void *context) -> sf_count_t {
        return of(context).noted(::lseek(of(context)._descriptor, offset, whence));
    };
    calls.tell = [](void *context) -> sf_count_t {
        return of(context).noted(::lseek(of(context)._descriptor, 0, SEEK_CUR));
    };
    calls.read = [](void *data, sf_count_t count, void *context) -> sf_count_t {
        return of(context).noted(
            ::read(of(context)._descriptor, data, static_cast<std::size_t>(count)));
    };
    calls.write = [](void const *data, sf_count_t count, void *context) -> sf_count_t {
        PartFile &file = of(context);
        for (sf_count_t written = 0; written < count && !file._systemError;) {
            auto const result = ::write(file._descriptor, static_cast<char const *>(data) + written,
                                        static_cast<std::size_t>(count - written));
            if (result < 0 && errno == EINTR)
                continue;
            written += std::max<sf_count_t>(file.noted(result), 0);
        }
        return count; // libsndfile's encoders leak memory if they are told of a failure
    };
    return calls;
}

void PartFile::write(std::string const &text)
{
    getCalls().write(text.data(), static_cast<sf_count_t>(text.size()), this);
    throwIfFailed();
}

std::string PartFile::readAt(off_t offset, std::size_t count)
{
    std::string bytes(count, '\0');
    auto const found = noted(::pread(_descriptor, bytes.data(), count, offset));
    throwIfFailed();
    bytes.resize(static_cast<std::size_t>(found));
    return bytes;
}

void PartFile::writeAt(off_t offset, std::string const &bytes)
{
    noted(::lseek(_descriptor, offset, SEEK_SET));
    write(bytes);
}

void PartFile::finish()
{
    // Without this, an empty file may have the name after a power cut.
    int result = 0;
    do
        result = ::fsync(_descriptor);
    while (result != 0 && errno == EINTR);
    noted(result);
    throwIfFailed();
}

void PartFile::commit()
{
    throwIfFailed();
    if (!Signals::isFileAt(_partPath.c_str(), _descriptor))
        ZV_THROW(PlayoutEx::Output, _path.c_str(), "its part was removed or replaced meanwhile");
    noted(std::rename(_partPath.c_str(), _target.c_str()));
    throwIfFailed();
    close();
}

void PartFile::throwIfFailed() const
{
    if (_systemError)
        refuse(_path, _systemError);
}
