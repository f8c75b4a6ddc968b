// Streams of a device: sources, sinks, the elements that pass between them, and the interface that
// offers them (device writers).
#pragma once

#include "resmgt/containers/iterator.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// The payload of stream elements. The devices that share a stream derive from it.
class ZVRESMGT_EXPORT DevMDStreamBuf : public RCBase<LkCounter<long>>
{
protected:
    ~DevMDStreamBuf() override;
};

/// One element of a stream: a payload and an event. It travels as an `ObjPtr<DevMDStreamElem>`.
/// Copies share the payload.
///
/// **Threads**: one thread at a time.
class ZVRESMGT_EXPORT DevMDStreamElem
{
public:
    /// An event. The devices that share a stream give the numbers their meaning, as in
    /// `DevMDStreamElem::Ev{1}`.
    enum class Ev : int
    {
    };

    /// Shares the payload `buf`.
    DevMDStreamElem(RCShdPtr<DevMDStreamBuf> const &buf, Ev ev);

    RCShdPtr<DevMDStreamBuf> getBuf() const { return _buf; }
    Ev getEv() const { return _ev; }

private:
    RCShdPtr<DevMDStreamBuf> _buf;
    Ev _ev;
};

/// What a source delivers. Devices that connect derive their formats from it. A sink casts the
/// format of a source to the formats that it knows.
class ZVRESMGT_EXPORT DevMDStreamFormat : public RCBase<LkCounter<long>>
{
protected:
    ~DevMDStreamFormat() override;
};

/// One end of a connection. An active source pushes into a passive sink, and an active sink pulls
/// from a passive source.
///
/// **Threads**: threads of clients connect and start streams under the manager's configuration
/// lock. They call `stop` without that lock. Elements pass between the threads of the devices.
class ZVRESMGT_EXPORT DevMDStream : public RCBase<LkCounter<long>>
{
public:
    /// Returns the name, which is unique among the device's streams.
    virtual LiString getName() = 0;
    virtual LiString getDescription() = 0;
    /// Returns a number whose meaning the device defines.
    virtual int getKind() = 0;
    /// Returns true if no connection has taken the stream.
    virtual bool isAvailable() = 0;
    /// Called when a connection takes the stream.
    virtual void start() = 0;
    /// Called when the connection releases the stream, on the thread that destroys the
    /// `DevMgrStreamAcc`.
    virtual void stop() = 0;

protected:
    ~DevMDStream() override;
};

/// The end of a connection that delivers elements.
class ZVRESMGT_EXPORT DevMDStreamSource : public DevMDStream
{
public:
    /// Returns what the source delivers.
    virtual RCShdPtr<DevMDStreamFormat> getFormat() = 0;

protected:
    ~DevMDStreamSource() override;
};

/// The end of a connection that takes elements.
class ZVRESMGT_EXPORT DevMDStreamSink : public DevMDStream
{
public:
    /// Returns true if this sink can take elements of that format.
    virtual bool isCompatible(RCShdPtr<DevMDStreamFormat> const &format) = 0;

protected:
    ~DevMDStreamSink() override;
};

/// A sink into which the source pushes.
class ZVRESMGT_EXPORT DevMDStreamPassiveSink : public DevMDStreamSink
{
public:
    /// Takes an element over. Called by the thread of the source device. May block while the sink
    /// is full.
    virtual void push(ObjPtr<DevMDStreamElem> elem) = 0;

protected:
    ~DevMDStreamPassiveSink() override;
};

/// A source from which the sink pulls.
class ZVRESMGT_EXPORT DevMDStreamPassiveSource : public DevMDStreamSource
{
public:
    /// Returns the next element. Called by the thread of the sink device.
    virtual ObjPtrRet<DevMDStreamElem> pull() = 0;

protected:
    ~DevMDStreamPassiveSource() override;
};

/// A source that pushes into its sink.
class ZVRESMGT_EXPORT DevMDStreamActiveSource : public DevMDStreamSource
{
public:
    /// Sets the sink into which the source must push from now on.
    virtual void connect(RCShdPtr<DevMDStreamPassiveSink> sink) = 0;

protected:
    ~DevMDStreamActiveSource() override;
};

/// A sink that pulls from its source.
class ZVRESMGT_EXPORT DevMDStreamActiveSink : public DevMDStreamSink
{
public:
    /// Sets the source from which the sink must pull from now on.
    virtual void connect(RCShdPtr<DevMDStreamPassiveSource> source) = 0;

protected:
    ~DevMDStreamActiveSink() override;
};

/// The interface of a device that has streams.
class ZVRESMGT_EXPORT DevMDStreamPrtcl : public virtual DevMDPrtcl
{
public:
    /// Returns an iterator over all streams of the device, at the first one. The device must
    /// outlive it.
    virtual ConstIterator<RCShdPtr<DevMDStream>> performGetStreams() = 0;

protected:
    ~DevMDStreamPrtcl() override;
};

} // namespace Zv
