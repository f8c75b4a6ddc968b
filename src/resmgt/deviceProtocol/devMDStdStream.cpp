#include "resmgt/deviceProtocol/devMDStdStream.h"

#include "resmgt/deviceProtocol/devMDStdIterator.private.h"
#include "resmgt/deviceProtocol/devPrtclEx.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/platform/shared.h"

namespace Zv {

template <class Kind>
DevMDStdStream<Kind>::DevMDStdStream(LiString const &name, LiString const &description)
    : _name(name), _description(description)
{}

template <class Kind>
DevMDStdStream<Kind>::DevMDStdStream(DevMDStdStream const &source)
    : Kind(source),
      _name(source._name),
      _description(source._description),
      _available(source._available.load(ZvPlatform::Order::ACQUIRE))
{}

template <class Kind>
DevMDStdStream<Kind> &DevMDStdStream<Kind>::operator=(DevMDStdStream const &source)
{
    Kind::operator=(source);
    _name = source._name;
    _description = source._description;
    _available.store(source._available.load(ZvPlatform::Order::ACQUIRE),
                     ZvPlatform::Order::RELEASE);
    return *this;
}

template <class Kind>
DevMDStdStream<Kind>::~DevMDStdStream() = default;

template <class Kind>
bool DevMDStdStream<Kind>::isAvailable()
{
    return _available.load(ZvPlatform::Order::ACQUIRE);
}

template <class Kind>
void DevMDStdStream<Kind>::start()
{
    _available.store(false, ZvPlatform::Order::RELEASE);
}

template <class Kind>
void DevMDStdStream<Kind>::stop()
{
    _available.store(true, ZvPlatform::Order::RELEASE);
}

template class DevMDStdStream<DevMDStreamActiveSink>;
template class DevMDStdStream<DevMDStreamActiveSource>;
template class DevMDStdStream<DevMDStreamPassiveSource>;
template class DevMDStdStream<DevMDStreamPassiveSink>;

DevMDStdStreamActiveSink::DevMDStdStreamActiveSink(LiString name, LiString description)
    : DevMDStdStream(name, description)
{}

DevMDStdStreamActiveSink::~DevMDStdStreamActiveSink() = default;

DevMDStdStreamActiveSource::DevMDStdStreamActiveSource(LiString const &name,
                                                       LiString const &description)
    : DevMDStdStream(name, description)
{}

DevMDStdStreamActiveSource::~DevMDStdStreamActiveSource() = default;

DevMDStdStreamPassiveSource::DevMDStdStreamPassiveSource(LiString const &name,
                                                         LiString const &description)
    : DevMDStdStream(name, description)
{}

DevMDStdStreamPassiveSource::~DevMDStdStreamPassiveSource() = default;

DevMDStdStreamPassiveSinkANOFactory::~DevMDStdStreamPassiveSinkANOFactory() noexcept(false) =
    default;

DevMDStdStreamPassiveSink::DevMDStdStreamPassiveSink(
    LiString name, LiString description, RCShdPtr<DevMDStdFifo> fifo,
    ObjPtr<DevMDStdStreamPassiveSinkANOFactory> anoFactory)
    : DevMDStdStream(name, description), _fifo(fifo), _anoFactory(anoFactory)
{}

DevMDStdStreamPassiveSink::DevMDStdStreamPassiveSink(DevMDStdStreamPassiveSink &source) = default;

DevMDStdStreamPassiveSink &
DevMDStdStreamPassiveSink::operator=(DevMDStdStreamPassiveSink &source) = default;

DevMDStdStreamPassiveSink::~DevMDStdStreamPassiveSink() = default;

void DevMDStdStreamPassiveSink::push(ObjPtr<DevMDStreamElem> elem)
{
    DevANOQueueEntry entry(_anoFactory->createPushANO(elem));
    _fifo->produce(entry);
}

DevMDStdStreamPrtcl::DevMDStdStreamPrtcl(LiString const &name) : _name(name) {}

DevMDStdStreamPrtcl::~DevMDStdStreamPrtcl()
{
    releaseAll(_streams);
}

ConstIterator<RCShdPtr<DevMDStream>> DevMDStdStreamPrtcl::performGetStreams()
{
    _iterCreated.store(true, ZvPlatform::Order::RELAXED);
    return Detail::iteratorOver(_streams);
}

void DevMDStdStreamPrtcl::addStream(RCShdPtr<DevMDStream> const &stream)
{
    if (_iterCreated.load(ZvPlatform::Order::RELAXED))
        ZV_THROW(DevPrtclEx::ExMDStdAddStream);
    _streams.push_back(stream);
}

} // namespace Zv
