// Base class of the playout's devices.
#pragma once

#include "audioStream.h"
#include "fault.h"
#include "fifoClock.h"
#include "metronome.h"
#include "playoutJob.h"

#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>

/// Device with a thread, at most one input and at most one output. A derived class adds its streams
/// and properties in its constructor, and overrides the `perform` functions. These run on the
/// device's thread, so they need no lock. Only `performOpen`, `performClose` and `getLatency` run
/// on other threads.
///
/// A device that fails ends only its own node of the sequence, and tells the client the reason. In
/// a step it also throws, so that the supervisor gets the reason. Between steps it reports an
/// abort. It passes the failure along its streams in both directions, so that each neighbour fails,
/// too. It still serves its FIFO afterwards.
///
/// A device also misbehaves if the job has a fault for it: see `Fault`.
class PlayoutDevice : public Zv::DevMDStdDevice
{
public:
    struct Statistics
    {
        std::int64_t blocks = 0;
        double longestWait = 0; // seconds that a request was in the FIFO
        double lockedAt = 0;    // moments of the monotonic clock, 0 for never
        double endedAt = 0;
    };

    /// Present load of a device.
    struct Load
    {
        std::int64_t nbRequests = 0; // in its FIFO
        std::optional<int> nbBlocks; // that wait at its input, of `AudioConnection::CAPACITY`
        std::int64_t nbDone = 0;     // blocks
    };

    /// Returns the figures of the device. It must be closed.
    Statistics getStatistics() const;
    /// Returns the load of the device, whose streams must be connected. Any thread may call it.
    Load getLoad() const;
    /// Gives up the recording. The device drops its elements for the next device from now on,
    /// instead of waiting for that device. Any thread may call it.
    void letGo();
    /// Returns how many seconds the device has spent on one request or piece of work. Returns 0 if
    /// it waits for requests or for the next device. Any thread may call it.
    double getBusySeconds() const;
    /// Has the device's thread call a function, and then `performPiece`. Any thread may call it.
    void post(std::function<void()> function);
    /// Makes the device end the recording now. Returns false if the recording has an end of
    /// its own. Any thread may call it.
    virtual bool endHere() { return false; }
    Metronome const &getMetronome() const { return _metronome; }

    void performOpen() override;
    void performClose() override;
    /// Returns the latency of the base class. Overridden for a fault at "ready".
    Zv::DtTime getLatency() override;

protected:
    PlayoutDevice(Zv::LiString const &name, Zv::RCShdPtr<PlayoutJob> const &job);
    ~PlayoutDevice() override;

    // Work of a device. If one of these throws, the device fails.
    /// Called at START, when all streams are connected.
    virtual void performBegin() {}
    /// Called when the device locks.
    virtual void performLock() {}
    /// Called for each block from the input.
    virtual void performTake(Zv::RCShdPtr<AudioBlock> const &) {}
    /// Called after the last block from the input.
    virtual void performTakeEnd() {}
    /// Called between requests while the device runs, again and again as long as it returns true.
    virtual bool performPiece() { return false; }
    /// Called with the number of new beats of the clock, from START on, if the device is paced.
    virtual void performBeats(std::int64_t) {}
    /// Called at STOP, at ABORT and after a failure. Releases everything. Must not throw.
    virtual void performEnd() {}

    void addIn(char const *description);
    /// Adds the output. `getFormat` is called by the thread that connects the stream.
    void addOut(char const *description, std::function<AudioFormat()> getFormat);
    /// Has the clock pace the device if it paces the show. For the device's constructor.
    void addBeats() { _isPaced = _job->isPaced; }
    bool isPaced() const { return _isPaced; }
    AudioIn &getIn() const { return *_in; }
    PlayoutJob &getJob() const { return *_job; }
    /// Counts a block and pushes it to the output. Throws `PlayoutEx::NeighbourFailed` if the next
    /// device has failed.
    void send(Zv::RCShdPtr<AudioBlock> const &block);
    void sendEnd();
    /// Counts a block as sent or written, and carries out a fault at the first one.
    void count();

private:
    class Body;
    enum class State
    {
        idle,
        running,
        ended // stopped or aborted
    };

    PlayoutDevice(Zv::LiString const &name, Zv::RCShdPtr<PlayoutJob> const &job,
                  Zv::RCShdPtr<FifoClock> const &clock);
    PlayoutDevice(Zv::LiString const &name, Zv::RCShdPtr<PlayoutJob> const &job,
                  Zv::RCShdPtr<FifoClock> const &clock, Zv::RCShdPtr<Zv::DevMDStdFifo> const &fifo);

    void start() final;
    void sync() final;
    void recover() final;
    void stop() final;
    void abort() final;
    void end();
    void take(Zv::DevMDStreamElem const &elem);
    void take(std::int64_t beats);
    bool work();
    void requireStreams() const;
    /// Runs a step of the sequence with its fault. If an exception is thrown, the device fails and
    /// the exception is passed on.
    template <class Step>
    void performStep(Fault::Phase phase, Step step);
    void finishFault(Fault::Kind kind);
    /// Runs work between the steps. If it throws, the device fails, reports an abort, and the
    /// result is false.
    template <class Step>
    bool attempt(Step step);
    /// Lets the device fail, and tells the client and the neighbours. `isOwn` says that the cause
    /// is not the failure of a neighbour.
    void fail(char const *reason, bool isOwn = true);
    void failWithNeighbour();
    Metronome::OnLateness getOnLateness() const;
    std::optional<Fault::Kind> findFault(Fault::Phase phase) const;

    Zv::LiString _name;
    Zv::RCShdPtr<PlayoutJob> _job;
    Zv::RCShdPtr<FifoClock> _clock;
    Zv::RCShdPtr<AudioIn> _in;   // null for a device that has none
    Zv::RCShdPtr<AudioOut> _out; // null for a device that has none
    Metronome _metronome;
    bool _isPaced = false;
    State _state = State::idle;
    bool _hasFailed = false;
    Statistics _statistics;                // without `blocks` and `longestWait`
    std::atomic<std::int64_t> _nbDone = 0; // blocks
    std::atomic<double> _busySince = 0;    // moment; 0 if it is not busy
    Zv::ObjPtr<Zv::DevACO> _kept;          // completion of a device that must be silent
};
