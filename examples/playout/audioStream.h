// The streams of the playout's devices, and what passes along them.
#pragma once

#include "audioFormat.h"

#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>
#include <resmgt/locks.h>

#include <functional>
#include <vector>

/// One block of samples, interleaved, in full scale 1.0. It belongs to the device that holds its element.
class AudioBlock : public Zv::DevMDStreamBuf
{
public:
    explicit AudioBlock(std::vector<double> s) : samples(std::move(s)) {}

    std::vector<double> samples;
};

/// What an element says.
namespace AudioEv {
using Ev = Zv::DevMDStreamElem::Ev;
inline constexpr Ev BLOCK{0};
inline constexpr Ev END{1};    ///< the recording has come to its end; no block
inline constexpr Ev FAILED{2}; ///< the source has failed: there will be no end; no block
} // namespace AudioEv

class AudioStreamFormat : public Zv::DevMDStreamFormat
{
public:
    explicit AudioStreamFormat(AudioFormat const &f) : format(f) {}

    AudioFormat const format;
};

/// What both ends of a connection share: the flow control, and the way back. The FIFOs of the devices have no limit, so
/// that nothing but a push ever waits for a device, and each push can be ended. Any thread may call any operation.
class AudioConnection : public Zv::RCBase<Zv::LkCounter<long>>
{
public:
    /// `onBroken` is called on the source device's thread, if at all.
    AudioConnection(Zv::RCShdPtr<Zv::DevMDStdFifo> sourceFifo, std::function<void()> onBroken);

    /// For the source. Blocks while as many blocks as the connection carries have not been taken up. Returns false if
    /// the sink has failed. Drops the element if the connection has been let go.
    bool push(Zv::DevMDStreamPassiveSink &sink, Zv::ObjPtr<Zv::DevMDStreamElem> elem);
    bool isBroken() const;
    /// Whether the source waits in `push`.
    bool isWaiting() const;
    /// For the sink, for each block.
    void takeUp();
    /// For a sink that has failed, once: tells the source. A source that is pushing sees it when `push` returns. Any
    /// other one gets a request.
    void breakUp();
    /// The recording is given up: nothing is delivered from now on, and `push` no longer blocks.
    void letGo();

private:
    Zv::RCShdPtr<Zv::DevMDStdFifo> _sourceFifo;
    std::function<void()> _onBroken;
    Zv::LkMutex mutable _lock{"AudioConnection"};
    Zv::LkPulse _changed{"AudioConnection", Zv::LkPulse::WAKE_ALL};
    int _nbOnTheWay ZV_GUARDED_BY(_lock) = 0; // blocks
    bool _isPushing ZV_GUARDED_BY(_lock) = false;
    bool _isWaiting ZV_GUARDED_BY(_lock) = false;
    bool _isBroken ZV_GUARDED_BY(_lock) = false;
    bool _isLetGo ZV_GUARDED_BY(_lock) = false;
};

/// A passive sink. Connected by the client before START; from then on the device's.
class AudioIn : public Zv::DevMDStdStreamPassiveSink
{
public:
    using DevMDStdStreamPassiveSink::DevMDStdStreamPassiveSink;

    int getKind() override { return 0; }
    bool isCompatible(Zv::RCShdPtr<Zv::DevMDStreamFormat> const &format) override;

    void attach(AudioFormat const &format, Zv::RCShdPtr<AudioConnection> const &connection);
    bool isConnected() const { return !_connection.isNull(); }
    AudioFormat const &getFormat() const { return _format; }
    /// A block has left the FIFO.
    void takeUp();
    /// Tells the source that this device has failed.
    void breakUp();

private:
    AudioFormat _format;
    Zv::RCShdPtr<AudioConnection> _connection;
};

/// An active source. Connected by the client before START; from then on the device's.
class AudioOut : public Zv::DevMDStdStreamActiveSource
{
public:
    /// `getFormat` is called where the stream is connected. `onBroken` is called on the device's thread.
    AudioOut(Zv::LiString const &name, Zv::LiString const &description,
             Zv::RCShdPtr<Zv::DevMDStdFifo> fifo, std::function<AudioFormat()> getFormat,
             std::function<void()> onBroken);

    int getKind() override { return 0; }
    Zv::RCShdPtr<Zv::DevMDStreamFormat> getFormat() override;
    void connect(Zv::RCShdPtr<Zv::DevMDStreamPassiveSink> sink) override;

    bool isConnected() const { return !_connection.isNull(); }
    bool isBroken() const { return isConnected() && _connection->isBroken(); }
    bool isWaiting() const { return isConnected() && _connection->isWaiting(); }
    /// See `AudioConnection::letGo`. Any thread.
    void letGo();
    /// Returns false if the sink has failed. Blocks while the sink's device is busy.
    bool push(AudioEv::Ev ev, Zv::RCShdPtr<AudioBlock> const &block = nullptr);

private:
    Zv::RCShdPtr<Zv::DevMDStdFifo> _fifo;
    std::function<AudioFormat()> _getFormat;
    std::function<void()> _onBroken;
    Zv::RCShdPtr<Zv::DevMDStreamPassiveSink> _sink;
    Zv::RCShdPtr<AudioConnection> _connection;
};
