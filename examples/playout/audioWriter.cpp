#include "audioWriter.h"

#include "playoutEx.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <utility>

namespace {

/// Of libsndfile; 0 for a name that says none.
int getContainer(std::string const &path)
{
    std::string extension = Zv::OsFilePath(path).getExtension();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (auto const &[name, container] :
         std::initializer_list<std::pair<char const *, int>>{{".wav", SF_FORMAT_WAV},
                                                             {".aiff", SF_FORMAT_AIFF},
                                                             {".aif", SF_FORMAT_AIFF},
                                                             {".flac", SF_FORMAT_FLAC},
                                                             {".ogg", SF_FORMAT_OGG},
                                                             {".oga", SF_FORMAT_OGG}})
        if (extension == name)
            return container;
    return 0;
}

/// The recording's own encoding, or the nearest that the container takes; 0 where it takes none.
int chooseFormat(int container, AudioFormat const &recording, SF_INFO info)
{
    int const bits = AudioFormat::getPcmBits(recording.encoding);
    std::vector<int> encodings{recording.encoding};
    if (bits == 0)
        encodings.insert(encodings.end(), {SF_FORMAT_FLOAT, SF_FORMAT_DOUBLE});
    if (bits == 8)
        encodings.insert(encodings.end(), {SF_FORMAT_PCM_U8, SF_FORMAT_PCM_S8, SF_FORMAT_PCM_16});
    encodings.insert(encodings.end(), {SF_FORMAT_PCM_24, SF_FORMAT_PCM_16, SF_FORMAT_VORBIS});
    for (int const encoding : encodings) {
        info.format = container | encoding;
        if (sf_format_check(&info))
            return info.format;
    }
    return 0;
}

} // namespace

AudioWriter::AudioWriter(std::string const &path, AudioFormat const &format)
    : _path(path), _channels(format.channels), _file(nullptr, &sf_close)
{
    int const container = getContainer(path);
    if (!container)
        ZV_THROW(PlayoutEx::Output, path.c_str(), "its name ends in none of .wav .aiff .flac .ogg");
    SF_INFO info = {};
    info.channels = format.channels;
    info.samplerate = format.rate;
    info.format = chooseFormat(container, format, info);
    if (!info.format)
        ZV_THROW(PlayoutEx::Output, path.c_str(),
                 "such a file takes no recording with this rate and these channels");
    _bits = AudioFormat::getPcmBits(info.format & SF_FORMAT_SUBMASK);
    _part = std::make_unique<PartFile>(path);
    SF_VIRTUAL_IO calls = PartFile::getCalls();
    _file.reset(sf_open_virtual(&calls, SFM_WRITE, &info, _part.get()));
    if (!_file || _part->getSystemError())
        fail(sf_strerror(nullptr));
    sf_command(_file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
}

void AudioWriter::write(std::vector<double> const &samples)
{
    auto const frames = static_cast<sf_count_t>(samples.size()) / _channels;
    sf_count_t written = 0;
    if (_bits) {
        // Rounded to the bits of the file: libsndfile would cut the rest of the 32 off.
        double const scale = std::ldexp(1.0, _bits - 1);
        _numbers.resize(samples.size());
        std::transform(samples.begin(), samples.end(), _numbers.begin(), [&](double sample) {
            double const level = std::clamp(std::nearbyint(sample * scale), -scale, scale - 1);
            return std::isnan(level) ? 0 : static_cast<int>(std::ldexp(level, 32 - _bits));
        });
        written = sf_writef_int(_file.get(), _numbers.data(), frames);
    } else {
        written = sf_writef_double(_file.get(), samples.data(), frames);
    }
    if (written != frames || sf_error(_file.get()) || _part->getSystemError())
        fail(sf_strerror(_file.get()));
}

void AudioWriter::finish()
{
    if (int const error = sf_close(_file.release()))
        fail(sf_error_number(error));
    _part->commit();
}

void AudioWriter::fail(char const *reason) const
{
    int const systemError = _part->getSystemError();
    ZV_THROW(PlayoutEx::Output, _path.c_str(), systemError ? std::strerror(systemError) : reason);
}
