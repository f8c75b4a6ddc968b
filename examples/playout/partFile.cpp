#include "partFile.h"

#include "playoutEx.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

PartFile::PartFile(std::string const &path) : _path(path), _partPath(path + ".part")
{
    struct stat status = {};
    int error = 0;
    if (::stat(path.c_str(), &status) == 0)
        error = S_ISDIR(status.st_mode) ? EISDIR : ::access(path.c_str(), W_OK) != 0 ? errno : 0;
    if (error)
        ZV_THROW(PlayoutEx::Output, path.c_str(), std::strerror(error));
    _descriptor = ::open(_partPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (_descriptor < 0)
        ZV_THROW(PlayoutEx::Output, _partPath.c_str(), std::strerror(errno));
}

PartFile::~PartFile()
{
    if (_descriptor >= 0)
        ::close(_descriptor);
    if (!_partPath.empty())
        std::remove(_partPath.c_str());
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
        return count; // libsndfile's encoders leak when they are told of a failure
    };
    return calls;
}

void PartFile::write(std::string const &text)
{
    getCalls().write(text.data(), static_cast<sf_count_t>(text.size()), this);
    throwIfFailed();
}

void PartFile::commit()
{
    noted(::close(std::exchange(_descriptor, -1)));
    if (!_systemError && noted(std::rename(_partPath.c_str(), _path.c_str())) == 0)
        _partPath.clear();
    throwIfFailed();
}

void PartFile::throwIfFailed() const
{
    if (_systemError)
        ZV_THROW(PlayoutEx::Output, _path.c_str(), std::strerror(_systemError));
}
