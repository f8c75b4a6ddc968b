// Streams of a standard device, and the list that keeps them (device writers).
#pragma once

#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/deviceProtocol/devMDStdFifo.h"
#include "resmgt/deviceProtocol/devMDStream.h"
#include "resmgt/literals/liString.h"
#include "zvbase/platform/shared.h"
#include "zvbase/sequenceContainers.h"

#include <concepts>
#include <functional>
#include <type_traits>
#include <utility>

namespace Zv {

/// The name, description and availability of a standard stream that is a `Kind`.
///
/// **Threads**: any thread may call `isAvailable`. A connection takes the stream under the
/// manager's configuration lock, and may release it without that lock.
template <class Kind>
class ZVRESMGT_EXPORT DevMDStdStream : public Kind
{
public:
    DevMDStdStream(DevMDStdStream const &);
    DevMDStdStream &operator=(DevMDStdStream const &);

    LiString getName() override { return _name; }
    LiString getDescription() override { return _description; }
    /// Returns true at first, and when no connection has taken the stream.
    bool isAvailable() override;
    /// Makes the stream unavailable.
    void start() override;
    /// Makes the stream available again.
    void stop() override;

protected:
    DevMDStdStream(LiString const &name, LiString const &description);
    ~DevMDStdStream() override;

private:
    LiString _name;
    LiString _description;
    ZvPlatform::Shared<bool> _available{true};
};

extern template class DevMDStdStream<DevMDStreamActiveSink>;
extern template class DevMDStdStream<DevMDStreamActiveSource>;
extern template class DevMDStdStream<DevMDStreamPassiveSource>;
extern template class DevMDStdStream<DevMDStreamPassiveSink>;

/// An active sink. A device derives from it and implements `getKind`, `isCompatible` and `connect`.
class ZVRESMGT_EXPORT DevMDStdStreamActiveSink : public DevMDStdStream<DevMDStreamActiveSink>
{
public:
    DevMDStdStreamActiveSink(LiString name, LiString description);

protected:
    ~DevMDStdStreamActiveSink() override;
};

/// An active source. A device derives from it and implements `getKind`, `getFormat` and `connect`.
class ZVRESMGT_EXPORT DevMDStdStreamActiveSource : public DevMDStdStream<DevMDStreamActiveSource>
{
public:
    DevMDStdStreamActiveSource(LiString const &name, LiString const &description);

protected:
    ~DevMDStdStreamActiveSource() override;
};

/// A passive source. A device derives from it and implements `getKind`, `getFormat` and `pull`.
class ZVRESMGT_EXPORT DevMDStdStreamPassiveSource : public DevMDStdStream<DevMDStreamPassiveSource>
{
public:
    DevMDStdStreamPassiveSource(LiString const &name, LiString const &description);

protected:
    ~DevMDStdStreamPassiveSource() override;
};

/// Makes the requests of a passive sink. The device implements it, or uses `makePushANOFactory`.
///
/// **Threads**: called on the thread that pushes. The requests are executed on the device's thread.
class ZVRESMGT_EXPORT DevMDStdStreamPassiveSinkANOFactory
{
public:
    virtual ~DevMDStdStreamPassiveSinkANOFactory() noexcept(false);

    /// Returns a request that takes the element over on the device's thread.
    virtual ObjPtrRet<DevMDStdANO> createPushANO(ObjPtr<DevMDStreamElem> elem) = 0;
};

/// A passive sink whose elements become requests on the device's thread. A device derives from it
/// and implements `getKind` and `isCompatible`.
class ZVRESMGT_EXPORT DevMDStdStreamPassiveSink : public DevMDStdStream<DevMDStreamPassiveSink>
{
public:
    /// `fifo` is the queue of the device. `anoFactory` makes a request of each element.
    DevMDStdStreamPassiveSink(LiString name, LiString description, RCShdPtr<DevMDStdFifo> fifo,
                              ObjPtr<DevMDStdStreamPassiveSinkANOFactory> anoFactory);
    /// Takes the factory away from `source`. Nothing can be pushed into `source` from then on.
    DevMDStdStreamPassiveSink(DevMDStdStreamPassiveSink &source);
    DevMDStdStreamPassiveSink &operator=(DevMDStdStreamPassiveSink &source);

    /// Queues the request and returns. Blocks while the queue is full, which is the flow control of
    /// a connection. If the device is closed, destroys the element.
    ///
    /// Throws what the request factory and the queue's observer throw, and `RCEx::ExNullPtr` if the
    /// factory is null or returns null.
    void push(ObjPtr<DevMDStreamElem> elem) override;

protected:
    ~DevMDStdStreamPassiveSink() override;

private:
    RCShdPtr<DevMDStdFifo> _fifo;
    ObjPtr<DevMDStdStreamPassiveSinkANOFactory> _anoFactory;
};

/// A function that takes over what is pushed into a sink.
template <class Function>
concept DevMDElementTaker = std::invocable < Detail::Stored<Function>,
        ObjPtr<DevMDStreamElem>
& > ;

namespace Detail {

template <class Function>
class CallablePushANOFactory final : public DevMDStdStreamPassiveSinkANOFactory
{
public:
    explicit CallablePushANOFactory(Function function) : _function(std::move(function)) {}

    ObjPtrRet<DevMDStdANO> createPushANO(ObjPtr<DevMDStreamElem> elem) override
    {
        return makeANO([this, elem = std::move(elem)]() mutable { std::invoke(_function, elem); });
    }

private:
    Function _function;
};

} // namespace Detail

/// Returns a factory whose requests call `function(ObjPtr<DevMDStreamElem>)` on the device's
/// thread. The sink must outlive its requests.
template <DevMDElementTaker Function>
[[nodiscard]] ObjPtrRet<DevMDStdStreamPassiveSinkANOFactory> makePushANOFactory(Function &&function)
{
    return makeObj<Detail::CallablePushANOFactory<std::decay_t<Function>>>(
        std::forward<Function>(function));
}

/// Keeps a device's streams. The device adds them in its constructor.
///
/// **Threads**: any thread may call `performGetStreams`. Only the constructing thread may call
/// `addStream`.
class ZVRESMGT_EXPORT DevMDStdStreamPrtcl : public DevMDStreamPrtcl
{
public:
    explicit DevMDStdStreamPrtcl(LiString const &name);

    /// Returns an iterator over the streams in the order in which they were added. No stream can be
    /// added after the first call.
    ConstIterator<RCShdPtr<DevMDStream>> performGetStreams() override;

protected:
    ~DevMDStdStreamPrtcl() override;

    /// Adds a stream. Throws `DevPrtclEx::ExMDStdAddStream` if `performGetStreams` has been called.
    void addStream(RCShdPtr<DevMDStream> const &stream);

private:
    LiString _name;
    Vector<RCShdPtr<DevMDStream>> _streams;
    ZvPlatform::Shared<bool> _iterCreated{false}; // set by each reader
};

} // namespace Zv
