#include "audioReader.h"

#include "playoutEx.h"
#include "signals.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

AudioReader::AudioReader(std::string const &path) : _path(path), _file(nullptr, &sf_close)
{
    open();
}

void AudioReader::open()
{
    // Opened here, because errno describes a failure better than libsndfile does.
    int const descriptor = openDescriptor();
    struct stat status = {};
    int const error = ::fstat(descriptor, &status) != 0 ? errno
                      : S_ISDIR(status.st_mode)         ? EISDIR
                                                        : 0;
    bool const isFirst = _status.st_ino == 0;
    bool const isSame = status.st_dev == _status.st_dev && status.st_ino == _status.st_ino &&
                        status.st_size == _status.st_size &&
                        status.st_mtim.tv_sec == _status.st_mtim.tv_sec &&
                        status.st_mtim.tv_nsec == _status.st_mtim.tv_nsec;
    if (error || (!isFirst && !isSame)) {
        ::close(descriptor);
        ZV_THROW(PlayoutEx::Input, _path.c_str(),
                 error ? std::strerror(error) : "the file has been changed meanwhile");
    }
    _status = status;
    SF_INFO info = {};
    _file.reset(sf_open_fd(descriptor, SFM_READ, &info, SF_TRUE));
    if (!_file)
        ZV_THROW(PlayoutEx::Input, _path.c_str(), sf_strerror(nullptr));
    _position = 0;
    auto const order = Channels::ofFile(_file.get(), info);
    _format.channels = info.channels;
    _format.layout = order.inBlockOrder();
    _format.rate = info.samplerate;
    _format.encoding = info.format & SF_FORMAT_SUBMASK;
    _format.frames = info.frames < SF_COUNT_MAX ? info.frames : AudioFormat::UNKNOWN;
    _indices = order.getIndices(_format.layout);
    if (std::is_sorted(_indices.begin(), _indices.end()))
        _indices.clear();
}

int AudioReader::openDescriptor() const
{
    for (;;) {
        int const descriptor = ::open(_path.c_str(), O_RDONLY | O_CLOEXEC);
        if (descriptor >= 0)
            return descriptor;
        if (errno != EINTR)
            ZV_THROW(PlayoutEx::Input, _path.c_str(), std::strerror(errno));
        // A signal has interrupted the wait for the other end of a pipe.
        if (Signals::getCaught())
            ZV_THROW(PlayoutEx::Interrupted);
    }
}

void AudioReader::rest()
{
    if (S_ISREG(_status.st_mode))
        _file.reset();
}

std::vector<double> AudioReader::read(std::int64_t position, int frames)
{
    if (!_file)
        open();
    // A file that is read from the beginning to the end need not be seekable.
    if (position != _position && sf_seek(_file.get(), position, SEEK_SET) != position)
        ZV_THROW(PlayoutEx::Input, _path.c_str(), sf_strerror(_file.get()));
    auto const channels = static_cast<std::size_t>(_format.channels);
    std::vector<double> samples(static_cast<std::size_t>(frames) * channels);
    sf_count_t count = 0;
    if (AudioFormat::getPcmBits(_format.encoding)) {
        _numbers.resize(samples.size());
        count = sf_readf_int(_file.get(), _numbers.data(), frames);
        for (std::size_t i = 0; i < static_cast<std::size_t>(count) * channels; ++i)
            samples[i] = std::ldexp(_numbers[i], -31);
    } else {
        count = sf_readf_double(_file.get(), samples.data(), frames);
    }
    if (sf_error(_file.get()))
        ZV_THROW(PlayoutEx::Input, _path.c_str(), sf_strerror(_file.get()));
    _position = position + count;
    if (count == 0 && _position < _format.frames)
        ZV_THROW(PlayoutEx::Input, _path.c_str(), "the file ends before its last frame");
    samples.resize(static_cast<std::size_t>(count) * channels);
    if (!_indices.empty())
        reorder(samples, _indices);
    return samples;
}
