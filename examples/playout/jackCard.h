// Sound through a server of JACK.
#pragma once

#ifdef ZVPLAYOUT_JACK

#include "soundCard.h"

#include <jack/jack.h>
#include <jack/ringbuffer.h>

/// Client of the JACK server. The server's callback takes the samples from lock-free rings, one for
/// each channel.
///
/// **Throws** `PlayoutEx::Client` if no server answers.
class JackCard final : public SoundCard
{
public:
    explicit JackCard(Timeline const &timeline);
    JackCard(JackCard const &) = delete;
    JackCard &operator=(JackCard const &) = delete;
    ~JackCard() override;

    int getSampleRate() const override { return _rate; }
    Figures getFigures() const override;
    std::string getFailure() const override;
    char const *getName() override { return "JACK"; }

    void openOutput(int channels, std::string const &place) override;
    std::int64_t write(std::vector<double> const &samples, std::int64_t first) override;
    void play() override { _isPlaying.store(true, std::memory_order_release); }
    void endOutput() override { _hasAll.store(true, std::memory_order_release); }
    bool hasPlayedAll() override;
    void close() override;
    void mute() override { _isPlaying.store(false, std::memory_order_release); }

protected:
    // Acquire, so that what the callback has taken from the rings is free when it is counted here.
    std::int64_t getPosition() const override { return _position.load(std::memory_order_acquire); }
    int getPeriod() const override { return _period; }

private:
    struct Channel
    {
        jack_port_t *port;
        std::unique_ptr<jack_ringbuffer_t, void (*)(jack_ringbuffer_t *)> ring;
    };

    /// The server's callback. It obeys the rules of real-time audio: no lock, no allocation, no
    /// system call.
    int process(jack_nframes_t count);
    void connect(std::string const &place);

    using Count = std::atomic<std::int64_t>;
    static_assert(Count::is_always_lock_free);

    jack_client_t *_client = nullptr; // null when it is closed
    int _rate = 0;
    int _period = 0;
    std::vector<Channel> _channels; // not changed after `_isOpen` is set
    std::vector<float> _samples;    // of one channel and one call of `write`
    std::int64_t _capacity = 0;     // of each ring, in samples
    std::int64_t _end = -1;         // position at which the last sample is heard; -1 if unknown

    // Shared with the callback. A release of a flag or count publishes all that was done before it.
    std::atomic<bool> _isOpen = false;
    std::atomic<bool> _isPlaying = false;
    std::atomic<bool> _hasAll = false;
    std::atomic<bool> _isGone = false;
    Count _written = 0; // samples of each channel
    Count _played = 0;
    Count _position = 0;
    Count _underruns = 0;
    Count _silence = 0;
    Count _late = 0;
};

#endif
