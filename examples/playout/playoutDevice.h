// What the three devices have in common.
#pragma once

#include "audioStream.h"
#include "fault.h"
#include "fifoClock.h"
#include "metronome.h"
#include "playoutJob.h"

#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>

#include <atomic>
#include <functional>

/// A derived class adds its streams and properties in its constructor and says what it does with the recording; all of
/// that runs on the device's thread, so that it needs no lock.
///
/// A device that fails ends its own node of the sequence and no other. It tells the client why. In a step it throws, so
/// that the supervisor has the reason, too, and elsewhere it fires its abort notification. It passes the failure along
/// its streams in both directions, so that each neighbour fails in the same way. Then it goes on serving its FIFO.
///
/// A device also misbehaves if the job has a fault for it: see `Fault`.
class PlayoutDevice : public Zv::DevMDStdDevice
{
public:
    struct Statistics
    {
        long blocks = 0;
        double longestWait = 0; // seconds that a request stood in the FIFO
        double lockedAt = 0;    // moments of the monotonic clock, 0 for never
        double endedAt = 0;
    };

    /// For a device that is closed.
    Statistics getStatistics() const;
    /// The recording is given up: the device drops what it has for the next one, instead of waiting. Any thread.
    void letGo();
    /// How long the device has been at one piece of its work, in seconds. 0 if it serves its FIFO, or waits for the
    /// next device. Any thread.
    double getBusySeconds() const;
    /// Has the device call a function, then look for something to do. Any thread.
    void post(std::function<void()> function);
    Metronome const &getMetronome() const { return _metronome; }

    void performOpen() override;
    void performClose() override;
    /// None. Overridden for a fault at "ready".
    Zv::DtTime getLatency() override;

protected:
    PlayoutDevice(Zv::LiString const &name, Zv::RCShdPtr<PlayoutJob> const &job);
    ~PlayoutDevice() override;

    // What a device does. What these throw is the device's failure.
    /// START: all streams are connected.
    virtual void performBegin() {}
    virtual void performLock() {}
    /// A block has come.
    virtual void performTake(Zv::RCShdPtr<AudioBlock> const &) {}
    /// All blocks have come.
    virtual void performTakeEnd() {}
    /// Called again and again while the device runs, between requests, for as long as it returns true.
    virtual bool performPiece() { return false; }
    /// So many beats of the clock have come: for a device that is paced, from START on.
    virtual void performBeats(std::int64_t) {}
    /// STOP, or a failure: let go of everything. Throws nothing.
    virtual void performEnd() {}

    void addIn(char const *description);
    /// `getFormat` is called where the stream is connected.
    void addOut(char const *description, std::function<AudioFormat()> getFormat);
    /// Has the clock pace the device, where it paces the show. In its constructor.
    void addBeats() { _isPaced = _job->isPaced; }
    bool isPaced() const { return _isPaced; }
    AudioIn &getIn() const { return *_in; }
    PlayoutJob &getJob() const { return *_job; }
    /// Pushes a block downstream and counts it.
    void send(Zv::RCShdPtr<AudioBlock> const &block);
    void sendEnd();
    /// A block has been sent or written.
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
    /// A step of the sequence, with the fault that it may have. The device has failed if it throws.
    template <class Step>
    void performStep(Fault::Phase phase, Step step);
    void finishFault(Fault::Kind kind);
    /// Work between the steps. Returns whether it went well. The device has failed otherwise, and aborts.
    template <class Step>
    bool attempt(Step step);
    /// `isOwn`: the failure is not one of a neighbour.
    void fail(char const *reason, bool isOwn = true);
    void failWithNeighbour();
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
    Statistics _statistics;
    std::atomic<double> _busySince = 0; // 0 if it is not
    Zv::ObjPtr<Zv::DevACO> _kept;       // by a device that is to be silent
};
