#include "soundCard.h"

#include "alsaCard.h"
#include "jackCard.h"
#include "now.h"
#include "playoutEx.h"
#include "show.h"

#include <zvbase/zvbase.h>

#include <cmath>
#include <ostream>
#include <stdexcept>

using namespace Zv;

namespace {

constexpr double PATIENCE = 0.25;        // seconds until a beat comes without the card
constexpr double LONGEST_STANDSTILL = 5; // seconds until a card that does nothing counts as gone
constexpr double SHORT = 0.01;           // seconds between looks whether the card is open

} // namespace

void SoundCard::check(std::string const &place)
{
    std::string const system = getSystem(place);
    if (system != "jack" && system != "alsa")
        throw std::invalid_argument("\"" + place +
                                    "\" is none of jack, jack:PORT,PORT..., alsa, alsa:DEVICE");
    std::string const names = place.substr(system.size());
    if (names == ":")
        throw std::invalid_argument("\"" + place + "\" has no " +
                                    (system == "jack" ? "port" : "device") + " behind the colon");
    if (system == "jack" &&
        (names.starts_with(":,") || names.ends_with(",") || names.find(",,") != names.npos))
        throw std::invalid_argument("\"" + place + "\" has a port without a name");
}

std::string SoundCard::getSystem(std::string const &place)
{
    return place.substr(0, place.find(':'));
}

std::unique_ptr<SoundCard> SoundCard::open(Show const &show, Timeline const &timeline)
{
    ShowDevice const * const speaker = show.find("speaker");
    ShowDevice const * const device = speaker ? speaker : show.find("microphone");
    if (!device)
        return nullptr;
    if (getSystem(device->card) == "alsa") {
#ifdef ZVPLAYOUT_ALSA
        return std::make_unique<AlsaCard>(timeline, speaker != nullptr);
#else
        ZV_THROW(PlayoutEx::Client, describeMissing("ALSA", "libasound2-dev").c_str());
#endif
    }
#ifdef ZVPLAYOUT_JACK
    return std::make_unique<JackCard>(timeline);
#else
    static_cast<void>(timeline);
    ZV_THROW(PlayoutEx::Client, describeMissing("JACK", "libjack-jackd2-dev").c_str());
#endif
}

SoundCard::Figures SoundCard::getFigures() const
{
    auto const order = std::memory_order_relaxed;
    return {_position.load(order), _underruns.load(order), _silence.load(order),
            _overruns.load(order), _lost.load(order),      _late.load(order)};
}

SoundCard::Filling SoundCard::getFilling() const
{
    int const rate = getSampleRate();
    if (!_isOutputOpen.load(std::memory_order_acquire) || rate <= 0)
        return {};
    return {static_cast<double>(_output->getReady()) / rate,
            static_cast<double>(_output->getCapacity()) / rate};
}

void SoundCard::openOutput(AudioFormat const &format, std::string const &place)
{
    // The player is ahead by the latency, and by a second if it catches up after a delay.
    _output = std::make_unique<SampleRing>(format.channels,
                                           std::llround((getLatency() + 1) * format.rate));
    performOpenOutput(format.channels, format.rate, place);
    _movedAt = now();
    _isOutputOpen.store(true, std::memory_order_release);
}

std::int64_t SoundCard::write(std::vector<double> const &samples, std::int64_t first)
{
    auto const channels = static_cast<std::size_t>(_output->getChannels());
    auto const frames = static_cast<std::int64_t>(samples.size() / channels) - first;
    std::int64_t const count = std::min(_output->getRoom(), frames);
    double const * const begin = samples.data() + static_cast<std::size_t>(first) * channels;
    _output->write(count, [&](std::size_t frame, std::size_t channel) {
        return static_cast<float>(begin[frame * channels + channel]);
    });
    return count;
}

bool SoundCard::hasPlayedAll()
{
    if (_output->getReady() > 0)
        return false;
    if (_end < 0)
        _end = getPosition() + getOutputDelay();
    return getPosition() >= _end;
}

int SoundCard::openInput(std::string const &place)
{
    _inputChannels = performOpenInput(place);
    return _inputChannels;
}

void SoundCard::capture(double seconds)
{
    _input = std::make_unique<SampleRing>(_inputChannels, std::llround(seconds * getSampleRate()));
    _isCapturing.store(true, std::memory_order_release);
}

std::vector<double> SoundCard::read(std::int64_t frames)
{
    auto const channels = static_cast<std::size_t>(_inputChannels);
    std::vector<double> samples(static_cast<std::size_t>(frames) * channels);
    _input->read(frames, [&](std::size_t frame, std::size_t channel, float sample) {
        samples[frame * channels + channel] = sample;
    });
    return samples;
}

void SoundCard::start()
{
    _reached = getPosition();
    _beat = 0;
    _beatRate = 0;
    _movedAt = now();
}

std::uint32_t SoundCard::waitSync()
{
    double const end = now() + PATIENCE;
    for (; getSampleRate() == 0 && now() < end; _movedAt = now())
        Sleeper::getInstance().sleep(SHORT);
    int const rate = getSampleRate();
    if (rate == 0)
        return static_cast<std::uint32_t>(++_beat);
    std::int64_t position = getPosition();
    if (rate != std::exchange(_beatRate, rate))
        _begin = position - _timeline.getSample(_beat, rate);
    std::int64_t const due = getDue(_beat + 1);
    double const shortest = 0.25 * getPeriod() / rate;
    for (; position < due && now() < end; position = getPosition())
        Sleeper::getInstance().sleep(
            std::max(static_cast<double>(due - position) / rate, shortest));
    if (position != std::exchange(_reached, position))
        _movedAt = now();
    do
        ++_beat;
    while (getDue(_beat + 1) <= position);
    return static_cast<std::uint32_t>(_beat);
}

std::ostream &SoundCard::dump(std::ostream &stream)
{
    return stream << getName() << ": " << getSampleRate() << " samples a second";
}

bool SoundCard::standsStill() const
{
    return _movedAt > 0 && now() - _movedAt > LONGEST_STANDSTILL;
}

void SoundCard::countUnderrun(std::int64_t silence)
{
    add(_underruns, 1);
    add(_silence, silence);
}

void SoundCard::countOverrun(std::int64_t lost)
{
    add(_overruns, 1);
    add(_lost, lost);
}

/// Returns the position of the card at which a beat is due.
std::int64_t SoundCard::getDue(std::int64_t beat) const
{
    return _begin + _timeline.getSample(beat, _beatRate);
}
