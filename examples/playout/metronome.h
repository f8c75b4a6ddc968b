// The beats of the show's clock.
#pragma once

#include <resmgt/deviceProtocol.h>
#include <resmgt/locks.h>
#include <resmgt/syncEngine.h>

#include <cstdint>
#include <functional>

/// Brings the sync engine's beats to a device, as requests in its FIFO. A client thread of the clock waits for them.
class Metronome
{
public:
    struct Figures
    {
        long beats = 0;
        long late = 0; // beats that came when the one before was still being delivered
    };
    /// So many beats have come since the last call: more than one where the thread was late. On the device's thread.
    using OnBeats = std::function<void(std::int64_t)>;

    Metronome() = default;
    Metronome(Metronome const &) = delete;
    Metronome &operator=(Metronome const &) = delete;
    ~Metronome() noexcept(false);

    // One thread at a time, and none whose device waits for the other.
    void start(Zv::LiString const &name, Zv::RCShdPtr<Zv::DevMDStdFifo> const &fifo,
               OnBeats onBeats);
    /// The device still serves its FIFO. Nothing where the metronome is not running.
    void stop();

    bool isUsed() const { return _isUsed; }
    /// Any thread.
    Figures getFigures() const;

private:
    class Client;

    Client *_client = nullptr; // the sync engine's
    bool _isUsed = false;
    Zv::LkLock mutable _lock{"Metronome"};
    Figures _figures;
};
