// Access object that connects streams of devices (applications).
#pragma once

#include "resmgt/deviceProtocol/devMDStream.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "zvbase/objPtr.h"

namespace Zv {

class DevMgrMediator;

/// Connects a stream of one device to a stream of another and starts them. The destructor stops
/// them:
///
///     ObjPtr<DevMgr> const manager = DevMgr::create();
///     ObjPtr<DevMgrStreamAcc> const streams = manager->createStreamAcc();
///     streams->connect("camera:out push recorder:in");
///
/// The string is `[source-device] : source-stream verb [sink-device] : sink-stream`. The verb is
/// `push` or `pull`, between white space. The device is omitted if the stream was registered under
/// its name alone. In a push the source is active and pushes into a passive sink. In a pull the
/// sink is active and pulls from a passive source. The passive end starts first.
///
/// **Threads**: any thread may call any operation at any time, except the threads of devices and
/// "DevMgr ANO".
///
/// **Blocks**: `connect`, `registerStream` and `isRegistered` take the configuration lock, so they
/// block while another thread configures. `connect` also blocks while a device is opened or a
/// stream starts.
///
/// **Throws**: after `DevMgr::close`, `connect`, `registerStream` and `isRegistered` throw
/// `DevMgrEx::ManagerClosed`.
///
/// The streams of a device whose opening has failed before are connected like those of any other
/// device.
class ZVRESMGT_EXPORT DevMgrStreamAcc
{
public:
    /// The name of a stream without white space: `device:stream`, or `:stream` for a stream without
    /// device.
    class ZVRESMGT_EXPORT StreamId
    {
    public:
        StreamId() = default;
        /// Makes the name of a stream without device.
        StreamId(LiString const &stream);
        /// Makes the name of a device's stream.
        StreamId(LiString const &device, LiString const &stream);

        LiString getId() const { return _id; }

    private:
        LiString _id;
    };

    /// Creates an access object for the devices of a mediator. Applications call
    /// `DevMgr::createStreamAcc`. If the mediator is null, the first operation that needs it throws
    /// `RCEx::ExNullPtr`.
    [[nodiscard]] static ObjPtrRet<DevMgrStreamAcc>
    create(RCShdPtr<DevMgrMediator> const &mediator);

    /// Stops all streams that it has started, the active end of the latest connection first. Does
    /// not take the configuration lock. If a stream fails to stop, the others are stopped
    /// nevertheless, and the first failure is thrown at the end. If this object is the last of its
    /// manager, the destructor also closes the devices, see `DevMgr`.
    virtual ~DevMgrStreamAcc() noexcept(false);

    /// Checks a string. Throws `DevMgrEx::ConfigSyntaxError`, with what was accepted and the fault,
    /// if it is wrong. Changes nothing.
    virtual void parseConfig(LiString const &config) = 0;
    /// Connects two streams and starts them. Creates and opens the devices that are not open yet.
    ///
    /// Throws `DevMgrEx::ConfigSyntaxError` if the string is wrong,
    /// `DevPrtclEx::ExNameNotRegistered` if a device is unknown, `DevMgrEx::NameNotRegistered` if a
    /// stream without device is unknown, `DevMgrEx::NameNotFound` if a device has no such stream,
    /// `DevMgrEx::StreamNotAvailable` if either end is in use (the reason names the source),
    /// `DevMgrEx::StreamsNotCompatible` if the sink cannot take what the source delivers, and
    /// `DevMgrEx::BadMDPrtclImp` if a device has no streams, or if the ends do not fit the verb.
    /// Passes on what a stream throws. Streams that were started before that stop with this object.
    virtual void connect(LiString const &config) = 0;
    /// Registers a stream under an id. Throws `DevMgrEx::NameNotUnique` if the id is in use. If the
    /// stream is null, `connect` throws `RCEx::ExNullPtr`.
    virtual void registerStream(StreamId const &id, RCShdPtr<DevMDStream> stream) = 0;
    /// Returns true if a stream is registered under the id.
    virtual bool isRegistered(StreamId const &id) = 0;
    /// Do what `registerStream` and `isRegistered` do. The caller must hold the configuration lock,
    /// `DevMgrMediator::getLock`.
    virtual void registerNoGuard(StreamId const &id, RCShdPtr<DevMDStream> stream) = 0;
    virtual bool isRegisteredNoGuard(StreamId const &id) = 0;

protected:
    DevMgrStreamAcc() = default;
};

} // namespace Zv
