// Sound through a device of ALSA.
#pragma once

#ifdef ZVPLAYOUT_ALSA

#include "soundCard.h"

#include <resmgt/locks.h>

/// One device of ALSA for the output and one for the input, each with a thread of the library that
/// waits for the device and moves the samples, 10 milliseconds at a time. Samples are 32-bit
/// floating-point numbers. Devices such as "default" and "plughw:0" convert them.
///
/// If a device has run out of samples or of room, it is started again, and that is counted.
class AlsaCard final : public SoundCard
{
public:
    /// `hasOutput` says that there will be an output. Then the beats are those of the output.
    AlsaCard(Timeline const &timeline, bool hasOutput);
    AlsaCard(AlsaCard const &) = delete;
    AlsaCard &operator=(AlsaCard const &) = delete;
    ~AlsaCard() noexcept(false) override;

    std::string getFailure() const override;
    char const *getName() override { return "ALSA"; }
    void close() override;

protected:
    void performOpenOutput(int channels, int rate, std::string const &place) override;
    int performOpenInput(std::string const &place) override;
    int getPeriod() const override;
    std::int64_t getOutputDelay() override { return _delay.load(std::memory_order_acquire); }

private:
    class Stream;

    void playOn(Stream &stream);
    void captureOn(Stream &stream);
    void fail(std::string const &reason);

    bool const _hasOutput;
    std::unique_ptr<Stream> _output;
    std::unique_ptr<Stream> _input;
    std::atomic<std::int64_t> _delay = 0; // samples from the newest one to the one that is heard
    Zv::LkLock mutable _lock{"AlsaCard"};
    std::string _failure ZV_GUARDED_BY(_lock);
};

#endif
