// Sound card: plays samples, and its clock paces the show.
#pragma once

#include "timeline.h"

#include <resmgt/syncEngine.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

/// Connection to a sound card. Its beats are the frames of the show's timeline, counted in samples
/// that the card has asked for. So the devices keep to the card's clock and not to a timer.
///
/// A beat must reach the generator's thread without a system call of the card's callback, because a
/// callback that wakes a thread enters the kernel. So the callback only counts samples.
/// `waitSync` sleeps until the next beat should be due by that count, and looks again. Thus the
/// card corrects each sleep, and a beat is late by at most a quarter of a period of the card and
/// the time to wake up.
///
/// **Threads**: one device's thread plays. Any thread may read the figures.
class SoundCard : public Zv::SeSourceProtocol
{
public:
    struct Figures
    {
        std::int64_t samples = 0;   // of each channel that the card has asked for
        std::int64_t underruns = 0; // periods that had too few samples
        std::int64_t silence = 0;   // samples of each channel that were missing
        std::int64_t late = 0;      // periods that the card reports as late
    };

    /// Throws `std::invalid_argument` if `place` is not like "jack" or
    /// "jack:system:playback_1,system:playback_2".
    static void check(std::string const &place);
    /// Opens the card of a place. Throws `PlayoutEx::Client`.
    static std::unique_ptr<SoundCard> open(std::string const &place, Timeline const &timeline);

    virtual int getSampleRate() const = 0;
    virtual Figures getFigures() const = 0;
    /// Returns whether the card has gone away. Then the reason is the text.
    virtual std::string getFailure() const = 0;

    /// Opens the output for that many channels, at the ports of a place. Throws
    /// `PlayoutEx::Client`.
    virtual void openOutput(int channels, std::string const &place) = 0;
    /// Takes interleaved samples from the frame `first` on. Does not wait. Returns the number of
    /// frames that had room.
    virtual std::int64_t write(std::vector<double> const &samples, std::int64_t first) = 0;
    /// Begins to play what was written. There is silence before that.
    virtual void play() = 0;
    /// Says that all was written. From now on, missing samples are not counted.
    virtual void endOutput() = 0;
    /// Returns whether everything that was written can be heard or was heard already.
    virtual bool hasPlayedAll() = 0;
    /// Ends the output at once.
    virtual void mute() = 0;

    /// Ends the connection, after the last beat. The figures stay. Waits for the sound server,
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

    /// Returns the number of samples of each channel that the card has asked for.
    virtual std::int64_t getPosition() const = 0;
    /// Returns the samples of each channel that the card asks for at a time.
    virtual int getPeriod() const = 0;
    /// Returns for how many seconds the card has not gone on, as seen by `waitSync`.
    double getStandstill() const;

private:
    std::int64_t getDue(std::int64_t beat) const;

    static constexpr double DEFAULT_LATENCY = 0.2;

    Timeline const &_timeline;
    std::atomic<double> _latency = DEFAULT_LATENCY;
    // These are of the generator's thread, except `_movedAt`.
    std::int64_t _begin = 0;
    std::int64_t _beat = 0;
    std::int64_t _position = 0;
    std::atomic<double> _movedAt = 0; // moment; 0 before the first beat
};
