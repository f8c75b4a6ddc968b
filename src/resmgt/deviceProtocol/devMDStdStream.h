// Streams with the bookkeeping done.
#pragma once

#include "resmgt/deviceProtocol/devMDStdANO.h"
#include "resmgt/deviceProtocol/devMDStdFifo.h"
#include "resmgt/deviceProtocol/devMDStream.h"
#include "resmgt/literals/liString.h"

namespace Zv {

/// What the four standard streams have in common: name, description and availability, for a stream that is a `Kind`.
///
/// A connection takes an available stream under the manager's configuration lock, and may let it go without: any
/// thread may ask.
template <class Kind>
class ZVRESMGT_EXPORT DevMDStdStream : public Kind
{
public:
    LiString getName() override { return _name; }
    LiString getDescription() override { return _description; }
    /// True at first, and whenever no connection has taken the stream.
    bool isAvailable() override;
    void start() override;
    void stop() override;

protected:
    DevMDStdStream(LiString const &name, LiString const &description);
    ~DevMDStdStream() override;

private:
    LiString _name;
    LiString _description;
    bool _available = true;
};

extern template class DevMDStdStream<DevMDStreamActiveSink>;
extern template class DevMDStdStream<DevMDStreamActiveSource>;
extern template class DevMDStdStream<DevMDStreamPassiveSource>;
extern template class DevMDStdStream<DevMDStreamPassiveSink>;

/// An active sink. A device derives from it and adds `getKind`, `isCompatible` and `connect`.
class ZVRESMGT_EXPORT DevMDStdStreamActiveSink : public DevMDStdStream<DevMDStreamActiveSink>
{
public:
    DevMDStdStreamActiveSink(LiString name, LiString description);

protected:
    ~DevMDStdStreamActiveSink() override;
};

/// An active source. A device derives from it and adds `getKind`, `getFormat` and `connect`.
class ZVRESMGT_EXPORT DevMDStdStreamActiveSource : public DevMDStdStream<DevMDStreamActiveSource>
{
public:
    DevMDStdStreamActiveSource(LiString const &name, LiString const &description);

protected:
    ~DevMDStdStreamActiveSource() override;
};

/// A passive source. A device derives from it and adds `getKind`, `getFormat` and `pull`.
class ZVRESMGT_EXPORT DevMDStdStreamPassiveSource : public DevMDStdStream<DevMDStreamPassiveSource>
{
public:
    DevMDStdStreamPassiveSource(LiString const &name, LiString const &description);

protected:
    ~DevMDStdStreamPassiveSource() override;
};

/// Makes the requests of a passive sink. Written by the device, or made by `makePushANOFactory`; called on the pusher's
/// thread.
class ZVRESMGT_EXPORT DevMDStdStreamPassiveSinkANOFactory
{
public:
    virtual ~DevMDStdStreamPassiveSinkANOFactory() noexcept(false);

    /// A request that takes the element up on the device's thread.
    virtual ObjPtrRet<DevMDStdANO> createPushANO(ObjPtr<DevMDStreamElem> elem) = 0;
};

/// A passive sink whose elements become requests on the device's thread. A device derives from it and adds `getKind`
/// and `isCompatible`.
class ZVRESMGT_EXPORT DevMDStdStreamPassiveSink : public DevMDStdStream<DevMDStreamPassiveSink>
{
public:
    DevMDStdStreamPassiveSink(LiString name, LiString description, RCShdPtr<DevMDStdFifo> fifo,
                              ObjPtr<DevMDStdStreamPassiveSinkANOFactory> anoFactory);
    /// The factory moves: nothing can be pushed into the source any more.
    DevMDStdStreamPassiveSink(DevMDStdStreamPassiveSink &source);
    DevMDStdStreamPassiveSink &operator=(DevMDStdStreamPassiveSink &source);

    /// Returns when the request is queued. Blocks while the FIFO is full: the flow control of a connection.
    void push(ObjPtr<DevMDStreamElem> elem) override;

protected:
    ~DevMDStdStreamPassiveSink() override;

private:
    RCShdPtr<DevMDStdFifo> _fifo;
    ObjPtr<DevMDStdStreamPassiveSinkANOFactory> _anoFactory;
};

} // namespace Zv
