#include "audioReader.h"

#include "playoutEx.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>

AudioReader::AudioReader(std::string const &path) : _path(path), _file(nullptr, &sf_close)
{
    // The system says better than libsndfile why a file cannot be opened.
    int const descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        ZV_THROW(PlayoutEx::Input, path.c_str(), std::strerror(errno));
    struct stat status = {};
    if (::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
        ::close(descriptor);
        ZV_THROW(PlayoutEx::Input, path.c_str(), std::strerror(EISDIR));
    }
    SF_INFO info = {};
    _file.reset(sf_open_fd(descriptor, SFM_READ, &info, SF_TRUE));
    if (!_file)
        ZV_THROW(PlayoutEx::Input, path.c_str(), sf_strerror(nullptr));
    _format.channels = info.channels;
    _format.rate = info.samplerate;
    _format.encoding = info.format & SF_FORMAT_SUBMASK;
    _format.frames = info.frames < SF_COUNT_MAX ? info.frames : AudioFormat::UNKNOWN;
}

std::vector<double> AudioReader::read(std::int64_t position, int frames)
{
    // Who reads on from where he was needs no file that can be wound.
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
    return samples;
}
