// Delivers the beats of the show's clock to a device.
#pragma once

#include <resmgt/deviceProtocol.h>
#include <resmgt/locks.h>
#include <resmgt/syncEngine.h>

#include <cstdint>
#include <functional>

/// Passes the beats of the sync engine to a device as requests in its FIFO. A client thread of the
/// clock waits for the beats.
class Metronome
{
public:
    struct Figures
    {
        long beats = 0;
        long late = 0;     // beats that passed while an earlier one was being delivered
        double latest = 0; // lateness of the latest beat, in seconds
    };
    /// Called on the device's thread with the number of beats since the last call. It is more than
    /// one if the client thread was late.
    using OnBeats = std::function<void(std::int64_t)>;
    /// Called for each beat, on the client thread, with its lateness in seconds. The earliest beat
    /// so far counts as one in time, also for the figures.
    using OnLateness = std::function<void(double)>;

    Metronome() = default;
    Metronome(Metronome const &) = delete;
    Metronome &operator=(Metronome const &) = delete;
    ~Metronome() noexcept(false);

    /// Begins to deliver the beats of a source, which must outlive the metronome's use of it.
    /// `start` and `stop` must be called by one thread at a time, and the
    /// device must not wait for that thread.
    void start(Zv::LiString const &name, Zv::RCShdPtr<Zv::DevMDStdFifo> const &fifo,
               Zv::SeSourceProtocol &source, OnBeats onBeats, OnLateness onLateness = nullptr);
    /// Ends the delivery. The device must still serve its FIFO. Does nothing if the metronome is
    /// not running.
    void stop();

    /// Returns whether the metronome was ever started.
    bool isUsed() const { return _isUsed; }
    /// Any thread may call it.
    Figures getFigures() const;

private:
    class Client;

    Client *_client = nullptr; // owned by the sync engine
    bool _isUsed = false;
    Zv::LkLock mutable _lock{"Metronome"};
    Figures _figures;
};
