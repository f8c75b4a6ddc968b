// The streams of the playout's devices, and what passes along them.
#pragma once

#include "audioFormat.h"

#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>

#include <atomic>
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

/// The way back along a connection: a sink that has failed tells its source so. It must not wait for a source that
/// waits for the sink, so it raises a flag, which the source looks at around each push. Only to a source that is not
/// pushing, and thus serves its FIFO, does it send a request.
class AudioConnection : public Zv::RCBase<Zv::LkCounter<long>>
{
public:
    /// `onBroken` is called on the source device's thread, if at all.
    AudioConnection(Zv::RCShdPtr<Zv::DevMDStdFifo> sourceFifo, std::function<void()> onBroken);

    /// For the source. False where the sink has failed.
    bool push(Zv::DevMDStreamPassiveSink &sink, Zv::ObjPtr<Zv::DevMDStreamElem> elem);
    bool isBroken() const { return _isBroken; }
    /// For the sink, once.
    void breakUp();

private:
    Zv::RCShdPtr<Zv::DevMDStdFifo> _sourceFifo;
    std::function<void()> _onBroken;
    // In one order for all threads: either the sink sees the push, or the source the flag.
    std::atomic<bool> _isPushing = false;
    std::atomic<bool> _isBroken = false;
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
    /// False where the sink has failed. Blocks while the sink's device is busy.
    bool push(AudioEv::Ev ev, Zv::RCShdPtr<AudioBlock> const &block = nullptr);

private:
    Zv::RCShdPtr<Zv::DevMDStdFifo> _fifo;
    std::function<AudioFormat()> _getFormat;
    std::function<void()> _onBroken;
    Zv::RCShdPtr<Zv::DevMDStreamPassiveSink> _sink;
    Zv::RCShdPtr<AudioConnection> _connection;
};
