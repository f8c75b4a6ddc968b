#include "alsaCard.h"

#ifdef ZVPLAYOUT_ALSA

#include "now.h"
#include "playoutEx.h"

#include <resmgt/threads.h>

#include <alsa/asoundlib.h>

#include <cerrno>
#include <functional>
#include <utility>

using namespace Zv;

namespace {

constexpr int PERIODS_PER_SECOND = 100;
constexpr int PERIODS = 10; // in the device's buffer
constexpr int LOOK = 100;   // milliseconds between looks whether a thread must end
constexpr unsigned USUAL_RATE = 48000;
constexpr unsigned USUAL_CHANNELS = 2; // of an input

void dropMessage(char const *, int, char const *, int, char const *, ...) {}

/// Returns the samples that are moved at a time.
int getPeriodAt(int rate)
{
    return std::max(rate / PERIODS_PER_SECOND, 1);
}

/// Returns the device of a place such as "alsa:hw:0".
std::string getDevice(std::string const &place)
{
    auto const colon = place.find(':');
    return colon == place.npos ? "default" : place.substr(colon + 1);
}

} // namespace

/// Open device in one direction, and its thread.
class AlsaCard::Stream
{
public:
    /// Opens the device. Throws `PlayoutEx::Client` with what ALSA says. If `channels` or `rate` is
    /// 0, takes what is nearest to the usual one.
    Stream(std::string const &place, snd_pcm_stream_t direction, int channels, int rate);
    Stream(Stream const &) = delete;
    Stream &operator=(Stream const &) = delete;
    /// Ends the thread, and the sound at once.
    ~Stream() noexcept(false);

    /// Starts a thread that calls `work`.
    void start(std::function<void()> work);
    bool mustEnd() const { return _mustEnd.load(std::memory_order_acquire); }
    /// Moves the samples of a period to or from the device, and waits as long as that takes.
    /// Returns the number of times that the device ran out of samples or of room, or the error if
    /// it failed for good, which is negative.
    int transfer();
    /// Returns "the ALSA device "hw:0" REASON: ERROR".
    std::string describe(std::string const &reason, int error) const;

    int getChannels() const { return static_cast<int>(_channels); }
    int getRate() const { return static_cast<int>(_rate); }
    int getPeriod() const { return getPeriodAt(getRate()); }
    /// Returns the samples in the device that are not yet heard.
    std::int64_t getDelay();
    /// Returns a sample of the period that `transfer` moves.
    float &at(std::size_t frame, std::size_t channel)
    {
        return _samples[frame * _channels + channel];
    }

private:
    class Body;

    void configure();
    void require(int result, std::string const &need) const;
    int move(std::size_t done);

    std::string const _device;
    snd_pcm_stream_t const _direction;
    std::unique_ptr<snd_pcm_t, int (*)(snd_pcm_t *)> _pcm{nullptr, &snd_pcm_close};
    unsigned _channels;
    unsigned _rate;
    std::vector<float> _samples;
    std::atomic<bool> _mustEnd = false;
    ObjPtr<MtThread> _thread;
    ObjPtr<PriorityRelation> _isRealTime; // between the thread and the level of real time
};

class AlsaCard::Stream::Body final : public MtThreadProtocol
{
public:
    Body(Stream &stream, std::function<void()> work) : _stream(stream), _work(std::move(work)) {}

    void performExecute(MtThread *) override { _work(); }
    void performStop(MtThread *) override
    {
        _stream._mustEnd.store(true, std::memory_order_release);
    }

private:
    Stream &_stream;
    std::function<void()> _work;
};

AlsaCard::Stream::Stream(std::string const &place, snd_pcm_stream_t direction, int channels,
                         int rate)
    : _device(getDevice(place)),
      _direction(direction),
      _channels(static_cast<unsigned>(channels)),
      _rate(static_cast<unsigned>(rate))
{
    // The library would write its messages to the standard error.
    snd_lib_error_set_handler(&dropMessage);
    snd_pcm_t *pcm = nullptr;
    if (int const error = snd_pcm_open(&pcm, _device.c_str(), _direction, SND_PCM_NONBLOCK))
        ZV_THROW(
            PlayoutEx::Client,
            (describe("cannot be opened", error) + ". \"aplay -L\" lists the devices").c_str());
    _pcm.reset(pcm);
    configure();
    _samples.resize(static_cast<std::size_t>(getPeriod()) * _channels);
}

AlsaCard::Stream::~Stream() noexcept(false)
{
    if (!_thread.isNull()) {
        _thread->stop();
        _thread->join();
    }
    snd_pcm_drop(_pcm.get());
}

void AlsaCard::Stream::configure()
{
    snd_pcm_t * const pcm = _pcm.get();
    snd_pcm_hw_params_t *hardware = nullptr;
    snd_pcm_hw_params_alloca(&hardware);
    require(snd_pcm_hw_params_any(pcm, hardware), "any format");
    require(snd_pcm_hw_params_set_access(pcm, hardware, SND_PCM_ACCESS_RW_INTERLEAVED),
            "interleaved samples");
    require(snd_pcm_hw_params_set_format(pcm, hardware, SND_PCM_FORMAT_FLOAT),
            "floating-point samples");
    if (_channels == 0) {
        _channels = USUAL_CHANNELS;
        require(snd_pcm_hw_params_set_channels_near(pcm, hardware, &_channels), "any channels");
    }
    require(snd_pcm_hw_params_set_channels(pcm, hardware, _channels),
            std::to_string(_channels) + (_channels == 1 ? " channel" : " channels"));
    if (_rate == 0) {
        _rate = USUAL_RATE;
        require(snd_pcm_hw_params_set_rate_near(pcm, hardware, &_rate, nullptr), "any rate");
    }
    require(snd_pcm_hw_params_set_rate(pcm, hardware, _rate, 0),
            std::to_string(_rate) + " samples a second");
    auto period = static_cast<snd_pcm_uframes_t>(getPeriod());
    require(snd_pcm_hw_params_set_period_size_near(pcm, hardware, &period, nullptr), "any period");
    auto buffer = PERIODS * period;
    require(snd_pcm_hw_params_set_buffer_size_near(pcm, hardware, &buffer), "any buffer");
    require(snd_pcm_hw_params(pcm, hardware), "these settings");

    snd_pcm_sw_params_t *software = nullptr;
    snd_pcm_sw_params_alloca(&software);
    require(snd_pcm_sw_params_current(pcm, software), "any settings");
    // Playing begins when the buffer is full.
    require(snd_pcm_sw_params_set_start_threshold(pcm, software, buffer / period * period),
            "a threshold");
    require(snd_pcm_sw_params_set_avail_min(pcm, software, period), "a period");
    require(snd_pcm_sw_params(pcm, software), "these settings");
    if (_direction == SND_PCM_STREAM_CAPTURE)
        require(snd_pcm_start(pcm), "a start");
}

void AlsaCard::Stream::require(int result, std::string const &need) const
{
    if (result < 0)
        ZV_THROW(PlayoutEx::Client, describe("does not take " + need, result).c_str());
}

std::string AlsaCard::Stream::describe(std::string const &reason, int error) const
{
    return "the ALSA device \"" + _device + "\" " + reason + ": " + snd_strerror(error);
}

void AlsaCard::Stream::start(std::function<void()> work)
{
    char const * const name =
        _direction == SND_PCM_STREAM_PLAYBACK ? "ALSA playback" : "ALSA capture";
    _thread = MtThreadFactory::getInstance().createThread(
        name, ObjPtr<MtThreadProtocol>(new Body(*this, std::move(work))));
    _isRealTime.reset(new PriorityRelation("rt<alsa",
                                           RtPriorities::getInstance().getRealTimePriority(),
                                           PriorityRelation::LESS, _thread->getPriority()));
    _thread->start();
}

int AlsaCard::Stream::transfer()
{
    double const begin = now();
    double const period = 1.0 / PERIODS_PER_SECOND;
    int runs = 0;
    for (std::size_t done = 0; done < _samples.size() / _channels && !mustEnd();) {
        int const count = move(done);
        if (count == 0) // the device was not ready in spite of its word
            Sleeper::getInstance().sleep(period / 4);
        if (count >= 0) {
            done += static_cast<std::size_t>(count);
            continue;
        }
        ++runs;
        int error = snd_pcm_recover(_pcm.get(), count, 1);
        if (error == 0 && _direction == SND_PCM_STREAM_CAPTURE)
            error = snd_pcm_start(_pcm.get());
        if (error < 0)
            return error;
    }
    // A device without a clock, such as "null", would take everything at once. A clock that goes
    // twice too fast is enough for it.
    if (double const rest = begin + period / 2 - now(); rest > 0)
        Sleeper::getInstance().sleep(rest);
    return runs;
}

/// Moves what the device takes or has. Returns the number of frames, or the error.
int AlsaCard::Stream::move(std::size_t done)
{
    int const isReady = snd_pcm_wait(_pcm.get(), LOOK);
    if (isReady <= 0)
        return isReady;
    float * const samples = _samples.data() + done * _channels;
    auto const frames = static_cast<snd_pcm_uframes_t>(_samples.size() / _channels - done);
    auto const count = _direction == SND_PCM_STREAM_PLAYBACK
                           ? snd_pcm_writei(_pcm.get(), samples, frames)
                           : snd_pcm_readi(_pcm.get(), samples, frames);
    return count == -EAGAIN ? 0 : static_cast<int>(count);
}

std::int64_t AlsaCard::Stream::getDelay()
{
    snd_pcm_sframes_t delay = 0;
    return snd_pcm_delay(_pcm.get(), &delay) == 0 ? std::max<std::int64_t>(delay, 0) : 0;
}

AlsaCard::AlsaCard(Timeline const &timeline, bool hasOutput)
    : SoundCard(timeline), _hasOutput(hasOutput)
{}

AlsaCard::~AlsaCard() noexcept(false)
{
    close(); // the threads use the members
}

void AlsaCard::close()
{
    _output.reset();
    _input.reset();
}

std::string AlsaCard::getFailure() const
{
    {
        LkGuard<LkLock const> const guard(_lock);
        if (!_failure.empty())
            return _failure;
    }
    return standsStill() ? "the ALSA device does not go on" : "";
}

void AlsaCard::fail(std::string const &reason)
{
    LkGuard<LkLock const> const guard(_lock);
    if (_failure.empty())
        _failure = reason;
}

int AlsaCard::getPeriod() const
{
    return getPeriodAt(getSampleRate());
}

void AlsaCard::performOpenOutput(int channels, int rate, std::string const &place)
{
    _output = std::make_unique<Stream>(place, SND_PCM_STREAM_PLAYBACK, channels, rate);
    setSampleRate(rate);
    _output->start([this, &stream = *_output] { playOn(stream); });
}

int AlsaCard::performOpenInput(std::string const &place)
{
    _input = std::make_unique<Stream>(place, SND_PCM_STREAM_CAPTURE, 0, 0);
    setSampleRate(_input->getRate());
    _input->start([this, &stream = *_input] { captureOn(stream); });
    return _input->getChannels();
}

/// Body of the thread of the output.
void AlsaCard::playOn(Stream &stream)
{
    while (!stream.mustEnd()) {
        playPeriod(stream.getPeriod(), [&](std::size_t frame, std::size_t channel, float sample) {
            stream.at(frame, channel) = sample;
        });
        int const runs = stream.transfer();
        if (runs < 0)
            return fail(stream.describe("has failed", runs));
        for (int i = 0; i < runs; ++i)
            countUnderrun(0); // how long the silence was, ALSA does not say
        _delay.store(stream.getDelay(), std::memory_order_release);
        advance(stream.getPeriod());
    }
}

/// Body of the thread of the input.
void AlsaCard::captureOn(Stream &stream)
{
    while (!stream.mustEnd()) {
        int const runs = stream.transfer();
        if (runs < 0)
            return fail(stream.describe("has failed", runs));
        for (int i = 0; i < runs; ++i)
            countOverrun(0); // how much was lost, ALSA does not say
        capturePeriod(stream.getPeriod(), [&](std::size_t frame, std::size_t channel) {
            return stream.at(frame, channel);
        });
        if (!_hasOutput)
            advance(stream.getPeriod());
    }
}

#endif
