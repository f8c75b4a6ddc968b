#include "audioWriter.h"

#include "playoutEx.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <stdexcept>
#include <utility>

namespace {

/// Returns libsndfile's format of the container, or 0 if the extension is not known.
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

/// Returns the format with the recording's own encoding or the nearest that the container takes, or
/// 0 if there is none.
int chooseFormat(int container, AudioFormat const &recording, SF_INFO info)
{
    int const bits = AudioFormat::getPcmBits(recording.encoding);
    std::vector<int> encodings{recording.encoding};
    if (bits == 0)
        encodings.insert(encodings.end(), {SF_FORMAT_FLOAT, SF_FORMAT_DOUBLE});
    if (bits == 8)
        encodings.insert(encodings.begin(), {SF_FORMAT_PCM_S8, SF_FORMAT_PCM_U8});
    // Only PCM with a sign makes a plain AIFF file, which every program reads.
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
    if (container == SF_FORMAT_WAV && format.layout.needNames())
        if (int const named = chooseFormat(SF_FORMAT_WAVEX, format, info))
            info.format = named;
    if (!info.format)
        ZV_THROW(PlayoutEx::Output, path.c_str(),
                 "such a file takes no recording with this rate and these channels");
    _format = info.format;
    _bits = AudioFormat::getPcmBits(info.format & SF_FORMAT_SUBMASK);
    _part = std::make_unique<PartFile>(path);
    SF_VIRTUAL_IO calls = PartFile::getCalls();
    _file.reset(sf_open_virtual(&calls, SFM_WRITE, &info, _part.get()));
    if (!_file || _part->getSystemError())
        fail(sf_strerror(nullptr));
    sf_command(_file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    try {
        auto const order = format.layout.assignTo(_file.get(), info.format & SF_FORMAT_TYPEMASK);
        _indices = format.layout.getIndices(order);
    } catch (std::invalid_argument const &refusal) {
        ZV_THROW(PlayoutEx::Output, path.c_str(), refusal.what());
    }
    if (std::is_sorted(_indices.begin(), _indices.end()))
        _indices.clear();
}

void AudioWriter::write(std::vector<double> const &block)
{
    std::vector<double> reordered;
    if (!_indices.empty()) {
        reordered = block;
        reorder(reordered, _indices);
    }
    auto const &samples = _indices.empty() ? block : reordered;
    auto const frames = static_cast<sf_count_t>(samples.size()) / _channels;
    sf_count_t written = 0;
    if (_bits) {
        // Rounds to the bits of the file, because libsndfile would truncate.
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
    _frames += frames;
}

void AudioWriter::finish()
{
    // Without frames, libsndfile does not write the header of a FLAC file by itself.
    if (_frames == 0 && (_format & SF_FORMAT_TYPEMASK) == SF_FORMAT_FLAC)
        sf_command(_file.get(), SFC_UPDATE_HEADER_NOW, nullptr, 0);
    if (int const error = sf_close(_file.release()))
        fail(sf_error_number(error));
    if ((_format & SF_FORMAT_TYPEMASK) == SF_FORMAT_AIFF && _bits)
        correctLength();
    _part->finish();
}

/// Corrects the lengths in an AIFF file. libsndfile counts the byte that makes the length of a
/// chunk even as a part of the sound, and as a frame if frames are single bytes.
void AudioWriter::correctLength() const
{
    auto const frameBytes = _bits / 8 * _channels;
    if (_frames * frameBytes % 2 == 0)
        return;
    auto const toBytes = [](std::int64_t number) {
        std::string bytes;
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes += static_cast<char>(number >> shift);
        return bytes;
    };
    constexpr off_t HEAD = 8; // of a chunk: its name and its length
    for (off_t place = 12;;) {
        std::string const head = _part->readAt(place, HEAD);
        if (head.size() < HEAD)
            return;
        std::string const name = head.substr(0, 4);
        off_t length = 0;
        for (char const byte : head.substr(4))
            length = length << 8 | static_cast<unsigned char>(byte);
        if (name == "COMM")
            _part->writeAt(place + HEAD + 2, toBytes(_frames));
        else if (name == "SSND")
            _part->writeAt(place + 4, toBytes(_frames * frameBytes + HEAD));
        place += HEAD + length + length % 2;
    }
}

void AudioWriter::fail(char const *reason) const
{
    int const systemError = _part->getSystemError();
    ZV_THROW(PlayoutEx::Output, _path.c_str(), systemError ? std::strerror(systemError) : reason);
}
