// The streams that a device offers: who pushes, who pulls, and what is compatible with what.
#pragma once

#include "resmgt/deviceProtocol/devMDStreamElem.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcShdPtr.h"

namespace Zv {

/// What a source delivers, in terms of the devices that connect: they derive from it, and a sink casts what it is
/// given to the formats that it knows.
class ZVRESMGT_EXPORT DevMDStreamFormat : public RCBase<LkCounter<long>>
{
protected:
    ~DevMDStreamFormat() override;
};

/// One end of a connection. Active ends act, passive ends are acted upon: an active source pushes into a passive
/// sink, an active sink pulls from a passive source. Configured by client threads under the manager's configuration
/// lock; elements pass between the devices' threads.
class ZVRESMGT_EXPORT DevMDStream : public RCBase<LkCounter<long>>
{
public:
    /// Unique among the device's streams.
    virtual LiString getName() = 0;
    virtual LiString getDescription() = 0;
    /// A number with a meaning of the device's own.
    virtual int getKind() = 0;
    /// True as long as no connection has taken the stream.
    virtual bool isAvailable() = 0;
    /// A connection takes the stream.
    virtual void start() = 0;
    /// The connection lets the stream go.
    virtual void stop() = 0;

protected:
    ~DevMDStream() override;
};

class ZVRESMGT_EXPORT DevMDStreamSource : public DevMDStream
{
public:
    virtual RCShdPtr<DevMDStreamFormat> getFormat() = 0;

protected:
    ~DevMDStreamSource() override;
};

class ZVRESMGT_EXPORT DevMDStreamSink : public DevMDStream
{
public:
    /// Whether this sink can take what a source's `getFormat` returned.
    virtual bool isCompatible(RCShdPtr<DevMDStreamFormat> const &format) = 0;

protected:
    ~DevMDStreamSink() override;
};

/// A sink that is pushed into.
class ZVRESMGT_EXPORT DevMDStreamPassiveSink : public DevMDStreamSink
{
public:
    /// Hands an element over. Called by the source device's thread; may block while the sink is full.
    virtual void push(ObjPtr<DevMDStreamElem> elem) = 0;

protected:
    ~DevMDStreamPassiveSink() override;
};

/// A source that is pulled from.
class ZVRESMGT_EXPORT DevMDStreamPassiveSource : public DevMDStreamSource
{
public:
    /// The next element. Called by the sink device's thread.
    virtual ObjPtrRet<DevMDStreamElem> pull() = 0;

protected:
    ~DevMDStreamPassiveSource() override;
};

/// A source that pushes.
class ZVRESMGT_EXPORT DevMDStreamActiveSource : public DevMDStreamSource
{
public:
    /// The sink to push into from now on.
    virtual void connect(RCShdPtr<DevMDStreamPassiveSink> sink) = 0;

protected:
    ~DevMDStreamActiveSource() override;
};

/// A sink that pulls.
class ZVRESMGT_EXPORT DevMDStreamActiveSink : public DevMDStreamSink
{
public:
    /// The source to pull from, from now on.
    virtual void connect(RCShdPtr<DevMDStreamPassiveSource> source) = 0;

protected:
    ~DevMDStreamActiveSink() override;
};

} // namespace Zv
