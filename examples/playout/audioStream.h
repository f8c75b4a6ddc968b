// Streams of audio blocks between the playout's devices.
#pragma once

#include "audioFormat.h"

#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>
#include <resmgt/locks.h>

#include <functional>
#include <vector>

/// Block of interleaved samples with full scale 1.0. Only the device that has its element may use
/// it.
class AudioBlock : public Zv::DevMDStreamBuf
{
public:
    explicit AudioBlock(std::vector<double> s) : samples(std::move(s)) {}

    std::vector<double> samples;
};

/// Kinds of stream elements.
namespace AudioEv {
using Ev = Zv::DevMDStreamElem::Ev;
inline constexpr Ev BLOCK{0};
inline constexpr Ev END{1};    ///< the recording is complete; no block
inline constexpr Ev FAILED{2}; ///< the source has failed, and no `END` will follow; no block
} // namespace AudioEv

class AudioStreamFormat : public Zv::DevMDStreamFormat
{
public:
    explicit AudioStreamFormat(AudioFormat const &f) : format(f) {}

    AudioFormat const format;
};

/// Flow control of a connection, shared by its two ends. The FIFOs of the devices have no limit. So
/// only `push` waits for a device, and `letGo` and `breakUp` end that wait. Thread-safe.
class AudioConnection : public Zv::RCBase<Zv::LkCounter<long>>
{
public:
    static constexpr int CAPACITY = Zv::DevMDStdFifo::DEFAULT_CAPACITY;

    /// `breakUp` has `onBroken` called on the source device's thread, if the source is not in
    /// `push`.
    AudioConnection(Zv::RCShdPtr<Zv::DevMDStdFifo> sourceFifo, std::function<void()> onBroken);

    /// Passes an element to the sink. Called by the source. Blocks while the connection is full of
    /// blocks that the sink has not taken up. Returns false if the sink has failed. Drops the
    /// element if the sink has failed or if `letGo` was called.
    bool push(Zv::DevMDStreamPassiveSink &sink, Zv::ObjPtr<Zv::DevMDStreamElem> elem);
    bool isBroken() const;
    /// Returns whether the source waits in `push` for a place in the connection.
    bool isWaiting() const;
    /// Returns the number of blocks that were pushed and not taken up, at most `CAPACITY`.
    int getNbOnTheWay() const;
    /// Makes room for another block. Called by the sink for each block that has left its FIFO.
    void takeUp();
    /// Tells the source that the sink has failed. Called by the sink, once. If the source is in
    /// `push`, that call returns false. Otherwise the source gets a request that calls `onBroken`.
    void breakUp();
    /// Gives up the recording: no further element is delivered, and `push` does not block.
    void letGo();

private:
    Zv::RCShdPtr<Zv::DevMDStdFifo> _sourceFifo;
    std::function<void()> _onBroken;
    Zv::LkMutex mutable _lock{"AudioConnection"};
    Zv::LkPulse _changed{"AudioConnection", Zv::LkPulse::WAKE_ALL};
    int _nbOnTheWay ZV_GUARDED_BY(_lock) = 0; // blocks that were pushed and not taken up
    bool _isPushing ZV_GUARDED_BY(_lock) = false;
    bool _isWaiting ZV_GUARDED_BY(_lock) = false;
    bool _isBroken ZV_GUARDED_BY(_lock) = false;
    bool _isLetGo ZV_GUARDED_BY(_lock) = false;
};

/// Input of a device: a passive sink. The client connects it before START. After that only the
/// device's thread uses it, if an operation does not say otherwise.
class AudioIn : public Zv::DevMDStdStreamPassiveSink
{
public:
    using DevMDStdStreamPassiveSink::DevMDStdStreamPassiveSink;

    int getKind() override { return 0; }
    bool isCompatible(Zv::RCShdPtr<Zv::DevMDStreamFormat> const &format) override;

    void attach(AudioFormat const &format, Zv::RCShdPtr<AudioConnection> const &connection);
    bool isConnected() const { return !_connection.isNull(); }
    AudioFormat const &getFormat() const { return _format; }
    /// Returns the number of blocks that wait for the device. Thread-safe after START.
    int getNbWaiting() const { return isConnected() ? _connection->getNbOnTheWay() : 0; }
    /// See `AudioConnection::takeUp`.
    void takeUp();
    /// Tells the source that this device has failed. Does nothing if there is no connection.
    void breakUp();

private:
    AudioFormat _format;
    Zv::RCShdPtr<AudioConnection> _connection;
};

/// Output of a device: an active source. The client connects it before START. After that only the
/// device's thread uses it, if an operation does not say otherwise.
class AudioOut : public Zv::DevMDStdStreamActiveSource
{
public:
    /// `getFormat` is called by the thread that connects the stream. `onBroken` is called on the
    /// device's thread.
    AudioOut(Zv::LiString const &name, Zv::LiString const &description,
             Zv::RCShdPtr<Zv::DevMDStdFifo> fifo, std::function<AudioFormat()> getFormat,
             std::function<void()> onBroken);

    int getKind() override { return 0; }
    Zv::RCShdPtr<Zv::DevMDStreamFormat> getFormat() override;
    void connect(Zv::RCShdPtr<Zv::DevMDStreamPassiveSink> sink) override;

    bool isConnected() const { return !_connection.isNull(); }
    bool isBroken() const { return isConnected() && _connection->isBroken(); }
    /// Returns whether the device waits in `push` for a place in the connection. Thread-safe after
    /// START.
    bool isWaiting() const { return isConnected() && _connection->isWaiting(); }
    /// See `AudioConnection::letGo`. Thread-safe after START.
    void letGo();
    /// Pushes an element, as `AudioConnection::push`. The stream must be connected.
    bool push(AudioEv::Ev ev, Zv::RCShdPtr<AudioBlock> const &block = nullptr);

private:
    Zv::RCShdPtr<Zv::DevMDStdFifo> _fifo;
    std::function<AudioFormat()> _getFormat;
    std::function<void()> _onBroken;
    Zv::RCShdPtr<Zv::DevMDStreamPassiveSink> _sink;
    Zv::RCShdPtr<AudioConnection> _connection;
};
