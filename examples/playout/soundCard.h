// Sound card: plays and captures samples, and its clock paces the show.
#pragma once

#include "audioFormat.h"
#include "sampleRing.h"
#include "timeline.h"

#include <resmgt/syncEngine.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

class Show;

/// Connection to a sound card. Its beats are the frames of the show's timeline, counted in samples
/// that the card has taken, or has captured if it plays nothing. So the devices keep to the card's
/// clock and not to a timer.
///
/// The samples pass through lock-free rings to and from the card's thread. A beat must reach the
/// generator's thread without a system call of that thread, because a callback that wakes a thread
/// enters the kernel. So the card's thread only counts samples. `waitSync` sleeps until the next
/// beat should be due by that count, and looks again. Thus the card corrects each sleep, and a beat
/// is late by at most a quarter of a period of the card and the time to wake up.
///
/// **Threads**: one device's thread plays, and one captures. Any thread may read the figures.
class SoundCard : public Zv::SeSourceProtocol
{
public:
    struct Figures
    {
        std::int64_t samples = 0;   // of each channel that the beats were counted by
        std::int64_t underruns = 0; // periods that had too few samples
        std::int64_t silence = 0;   // samples of each channel that were missing
        std::int64_t overruns = 0;  // periods that were captured and lost
        std::int64_t lost = 0;      // samples of each channel in them
        std::int64_t late = 0;      // periods that the card reports as late
    };

    /// Throws `std::invalid_argument` if `place` is not like "jack", "jack:system:playback_1" or
    /// "alsa:default". The text says what is wrong.
    static void check(std::string const &place);
    /// Returns the sound system of a place: "jack" or "alsa".
    static std::string getSystem(std::string const &place);
    /// Connects to the sound system of the show's speaker and microphone. Returns null if it has
    /// neither. Throws `PlayoutEx::Client`.
    static std::unique_ptr<SoundCard> open(Show const &show, Timeline const &timeline);

    /// Returns the samples a second. Returns 0 as long as neither output nor input is open, if the
    /// card can have several rates.
    int getSampleRate() const { return _rate.load(std::memory_order_acquire); }
    Figures getFigures() const;
    /// Sound that waits to be played, in seconds. The amount is negative if no output is open.
    struct Filling
    {
        double ready = -1;
        double room = 0; ///< that there is in total
    };
    Filling getFilling() const;
    /// Returns whether the card has gone away. Then the reason is the text.
    virtual std::string getFailure() const = 0;

    /// Opens the output for the channels and the rate of a format, at a place. Throws
    /// `PlayoutEx::Client`.
    void openOutput(AudioFormat const &format, std::string const &place);
    /// Takes interleaved samples from the frame `first` on. Does not wait. Returns the number of
    /// frames that had room.
    std::int64_t write(std::vector<double> const &samples, std::int64_t first);
    /// Begins to play what was written. There is silence before that.
    void play() { _isPlaying.store(true, std::memory_order_release); }
    /// Says that all was written. From now on, missing samples are not counted.
    void endOutput() { _hasAll.store(true, std::memory_order_release); }
    /// Returns whether everything that was written can be heard or was heard already.
    bool hasPlayedAll();
    /// Ends the output at once.
    void mute() { _isPlaying.store(false, std::memory_order_release); }

    /// Opens the input at a place. Returns its number of channels. The rate is known from then on.
    /// Throws `PlayoutEx::Client`.
    [[nodiscard]] int openInput(std::string const &place);
    /// Begins to capture. At most that many seconds wait to be read. What has no room is lost.
    void capture(double seconds);
    /// Ends the capture. What was captured can still be read.
    void endCapture() { _isCapturing.store(false, std::memory_order_release); }
    /// Returns the number of frames that were captured and can be read.
    std::int64_t getCaptured() const { return _input->getReady(); }
    /// Returns the next frames that were captured, interleaved. There must be that many.
    std::vector<double> read(std::int64_t frames);

    /// Ends the connection, after the last beat. The figures stay. Waits for the sound system,
    /// which may not answer.
    virtual void close() = 0;

    /// The sound that must be written before `play`, in seconds.
    double getLatency() const { return _latency; }
    void setLatency(double seconds) { _latency = seconds; }

    void start() final;
    void stop() final {}
    /// If the card does not go on, returns after a while nevertheless, so that the threads of the
    /// show can end.
    std::uint32_t waitSync() final;
    double getRate() final { return 1 / _timeline.getInterval(); }
    std::ostream &dump(std::ostream &stream) final;

protected:
    explicit SoundCard(Timeline const &timeline) : _timeline(timeline) {}

    virtual void performOpenOutput(int channels, int rate, std::string const &place) = 0;
    /// Returns the number of channels.
    virtual int performOpenInput(std::string const &place) = 0;
    /// Returns the samples of each channel that the card asks for at a time.
    virtual int getPeriod() const = 0;
    /// Returns the samples between the one that the card has just taken and the one that is heard.
    virtual std::int64_t getOutputDelay() = 0;
    void setSampleRate(int rate) { _rate.store(rate, std::memory_order_release); }
    /// Returns whether the card has done nothing for so long that it counts as gone.
    bool standsStill() const;

    // For the card's thread. They obey the rules of real-time audio: no lock, no allocation, no
    // system call.
    /// Calls `put(frame, channel, sample)` for the next samples to be heard, or for as much
    /// silence. Does nothing if the output is not open.
    template <class Put>
    void playPeriod(std::int64_t frames, Put put);
    /// Captures the samples that `get(frame, channel)` returns. Leaves out the whole period if it
    /// has too little room. Does nothing before `capture`.
    template <class Get>
    void capturePeriod(std::int64_t frames, Get get);
    /// Counts samples of each channel for the beats.
    void advance(std::int64_t frames) { add(_position, frames, std::memory_order_release); }
    void countUnderrun(std::int64_t silence);
    void countOverrun(std::int64_t lost);
    void countLate() { add(_late, 1); }

private:
    using Count = std::atomic<std::int64_t>;
    static_assert(Count::is_always_lock_free);

    static void add(Count &count, std::int64_t number,
                    std::memory_order order = std::memory_order_relaxed)
    {
        count.fetch_add(number, order);
    }
    std::int64_t getPosition() const { return _position.load(std::memory_order_acquire); }
    std::int64_t getDue(std::int64_t beat) const;

    static constexpr double DEFAULT_LATENCY = 0.2;

    Timeline const &_timeline;
    std::atomic<double> _latency = DEFAULT_LATENCY;
    std::atomic<double> _movedAt = 0; // moment of the last progress, 0 before `start`
    // These are of the generator's thread.
    int _beatRate = 0;         // by which `_begin` was computed, 0 for none
    std::int64_t _begin = 0;   // position of beat 0
    std::int64_t _beat = 0;    // number of the last one
    std::int64_t _reached = 0; // position at the last beat

    // Shared with the card's thread. A ring is not changed after its flag is set. A release of a
    // flag or count publishes all that was done before it.
    std::unique_ptr<SampleRing> _output;
    std::unique_ptr<SampleRing> _input;
    std::atomic<bool> _isOutputOpen = false;
    std::atomic<bool> _isPlaying = false;
    std::atomic<bool> _hasAll = false;
    std::atomic<bool> _isCapturing = false;
    std::atomic<int> _rate = 0;
    Count _position = 0;
    Count _underruns = 0;
    Count _silence = 0;
    Count _overruns = 0;
    Count _lost = 0;
    Count _late = 0;

    int _inputChannels = 0;
    std::int64_t _end = -1; // position at which the last sample is heard; -1 if unknown
};

template <class Put>
void SoundCard::playPeriod(std::int64_t frames, Put put)
{
    if (!_isOutputOpen.load(std::memory_order_acquire))
        return;
    bool const hasAll = _hasAll.load(std::memory_order_acquire); // before the ring is looked at
    bool const isPlaying = _isPlaying.load(std::memory_order_acquire);
    std::int64_t const ready = isPlaying ? std::min(_output->getReady(), frames) : 0;
    _output->read(ready, put);
    auto const channels = static_cast<std::size_t>(_output->getChannels());
    for (auto i = static_cast<std::size_t>(ready); i < static_cast<std::size_t>(frames); ++i)
        for (std::size_t k = 0; k < channels; ++k)
            put(i, k, 0.0f);
    if (isPlaying && !hasAll && ready < frames)
        countUnderrun(frames - ready);
}

template <class Get>
void SoundCard::capturePeriod(std::int64_t frames, Get get)
{
    if (!_isCapturing.load(std::memory_order_acquire))
        return;
    if (_input->getRoom() < frames)
        countOverrun(frames);
    else
        _input->write(frames, get);
}
