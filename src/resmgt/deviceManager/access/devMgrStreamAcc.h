// Connecting a stream of one device to a stream of another.
#pragma once

#include "resmgt/deviceProtocol/devMDStream.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "zvbase/objPtr.h"

namespace Zv {

class DevMgrMediator;

/// Connects streams by a stream string, starts them, and stops them all when it is destroyed: the active end of the
/// latest connection first.
///
/// The string is `[source-device] : source-stream verb [sink-device] : sink-stream`, where the verb is `push` or
/// `pull` and stands between white space: `camera:out push recorder:in`. A device is left out for a stream that was
/// registered under a bare name. In a push the source is active and pushes into a passive sink; in a pull the sink is
/// active and pulls from a passive source. The passive end starts first.
///
/// All operations may be called by any thread but those of devices and "DevMgr ANO". After `DevMgr::close`, those that
/// take the configuration lock throw `DevMgrEx::ManagerClosed`. The streams of a device whose opening has failed before
/// are connected like those of any other device.
class ZVRESMGT_EXPORT DevMgrStreamAcc
{
public:
    /// The canonical name of a stream, without white space: `device:stream`, or `:stream` for a bare one.
    class ZVRESMGT_EXPORT StreamId
    {
    public:
        StreamId() = default;
        StreamId(LiString const &stream);
        StreamId(LiString const &device, LiString const &stream);

        LiString getId() const { return _id; }

    private:
        LiString _id;
    };

    /// For the devices of a mediator; `DevMgr::createStreamAcc` makes one for those of a manager. A null mediator ends
    /// the first operation that asks for it in `RCEx::ExNullPtr`.
    static ObjPtrRet<DevMgrStreamAcc> create(RCShdPtr<DevMgrMediator> const &mediator);

    /// Stops what it started, without taking the configuration lock. One that fails to stop does not keep the others
    /// running; throws the first failure when all is done. If this object is the last of its manager, the destructor
    /// also does what `DevMgr` says of that.
    virtual ~DevMgrStreamAcc() noexcept(false);

    /// Throws `DevMgrEx::ConfigSyntaxError` on a bad string, with all that was accepted and the fault. Changes
    /// nothing.
    virtual void parseConfig(LiString const &config) = 0;
    /// Connects two streams and starts them. Devices are created and opened at their first mention.
    /// `DevMgrEx::ConfigSyntaxError`; `NameNotRegistered` for an unknown bare name; `NameNotFound` for a stream that
    /// its device has not; `StreamNotAvailable` where either end is in use (the reason names the source);
    /// `StreamsNotCompatible`; `BadMDPrtclImp` for a device without streams or ends that do not fit the verb;
    /// `DevPrtclEx::ExNameNotRegistered` for an unknown device. What a stream throws passes, and streams started
    /// before that are stopped with this object.
    virtual void connect(LiString const &config) = 0;
    /// Makes a stream known by an id. `DevMgrEx::NameNotUnique` where the id is taken. A null stream is found out when
    /// it is connected, by `RCEx::ExNullPtr`.
    virtual void registerStream(StreamId const &id, RCShdPtr<DevMDStream> stream) = 0;
    virtual bool isRegistered(StreamId const &id) = 0;
    /// The forms for a caller that holds the configuration lock, `DevMgrMediator::getLock`.
    virtual void registerNoGuard(StreamId const &id, RCShdPtr<DevMDStream> stream) = 0;
    virtual bool isRegisteredNoGuard(StreamId const &id) = 0;

protected:
    DevMgrStreamAcc() = default;
};

} // namespace Zv
