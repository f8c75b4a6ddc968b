// Streams with the bookkeeping done.
#pragma once

#include "resmgt/deviceProtocol/devMDStdANO.h"
#include "resmgt/deviceProtocol/devMDStdFifo.h"
#include "resmgt/deviceProtocol/devMDStream.h"
#include "resmgt/literals/liString.h"

namespace Zv {

/// An active sink with name, description and availability. A device derives from it and adds `getKind`,
/// `isCompatible` and `connect`.
///
/// The availability of all four kinds is a plain flag, changed and read under the manager's configuration lock.
class ZVRESMGT_EXPORT DevMDStdStreamActiveSink : public DevMDStreamActiveSink
{
public:
    DevMDStdStreamActiveSink(LiString name, LiString description);

    LiString getName() override { return _name; }
    LiString getDescription() override { return _description; }
    bool isAvailable() override { return _available; }
    void start() override { _available = false; }
    void stop() override { _available = true; }

protected:
    ~DevMDStdStreamActiveSink() override;

private:
    LiString _name;
    LiString _description;
    bool _available = true;
};

/// An active source with name, description and availability. A device derives from it and adds `getKind`, `getFormat`
/// and `connect`.
class ZVRESMGT_EXPORT DevMDStdStreamActiveSource : public DevMDStreamActiveSource
{
public:
    DevMDStdStreamActiveSource(LiString const &name, LiString const &description);

    LiString getName() override { return _name; }
    LiString getDescription() override { return _description; }
    bool isAvailable() override { return _available; }
    void start() override { _available = false; }
    void stop() override { _available = true; }

protected:
    ~DevMDStdStreamActiveSource() override;

private:
    LiString _name;
    LiString _description;
    bool _available = true;
};

/// A passive source with name, description and availability. A device derives from it and adds `getKind`, `getFormat`
/// and `pull`.
class ZVRESMGT_EXPORT DevMDStdStreamPassiveSource : public DevMDStreamPassiveSource
{
public:
    DevMDStdStreamPassiveSource(LiString const &name, LiString const &description);

    LiString getName() override { return _name; }
    LiString getDescription() override { return _description; }
    bool isAvailable() override { return _available; }
    void start() override { _available = false; }
    void stop() override { _available = true; }

protected:
    ~DevMDStdStreamPassiveSource() override;

private:
    LiString _name;
    LiString _description;
    bool _available = true;
};

/// Makes the requests of a passive sink. Written by the device; called on the pusher's thread.
class ZVRESMGT_EXPORT DevMDStdStreamPassiveSinkANOFactory
{
public:
    virtual ~DevMDStdStreamPassiveSinkANOFactory() noexcept(false);

    /// A request that takes the element up on the device's thread.
    virtual ObjPtrRet<DevMDStdANO> createPushANO(ObjPtr<DevMDStreamElem> elem) = 0;
};

/// A passive sink whose elements become requests on the device's thread. A device derives from it and adds `getKind`
/// and `isCompatible`.
class ZVRESMGT_EXPORT DevMDStdStreamPassiveSink : public DevMDStreamPassiveSink
{
public:
    DevMDStdStreamPassiveSink(LiString name, LiString description, RCShdPtr<DevMDStdFifo> fifo,
                              ObjPtr<DevMDStdStreamPassiveSinkANOFactory> anoFactory);
    /// The factory moves: nothing can be pushed into the source any more.
    DevMDStdStreamPassiveSink(DevMDStdStreamPassiveSink &source);
    DevMDStdStreamPassiveSink &operator=(DevMDStdStreamPassiveSink &source);

    LiString getName() override { return _name; }
    LiString getDescription() override { return _description; }
    bool isAvailable() override { return _available; }
    void start() override { _available = false; }
    void stop() override { _available = true; }
    /// Returns when the request is queued. Blocks while the FIFO is full: the flow control of a connection.
    void push(ObjPtr<DevMDStreamElem> elem) override;

protected:
    ~DevMDStdStreamPassiveSink() override;

private:
    LiString _name;
    LiString _description;
    bool _available = true;
    RCShdPtr<DevMDStdFifo> _fifo;
    ObjPtr<DevMDStdStreamPassiveSinkANOFactory> _anoFactory;
};

} // namespace Zv
