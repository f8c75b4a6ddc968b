#include "resmgt/deviceProtocol/devMDStdStream.h"

namespace Zv {

DevMDStdStreamActiveSink::DevMDStdStreamActiveSink(LiString name, LiString description)
    : _name(name), _description(description)
{}

DevMDStdStreamActiveSink::~DevMDStdStreamActiveSink() = default;

DevMDStdStreamActiveSource::DevMDStdStreamActiveSource(LiString const &name,
                                                       LiString const &description)
    : _name(name), _description(description)
{}

DevMDStdStreamActiveSource::~DevMDStdStreamActiveSource() = default;

DevMDStdStreamPassiveSource::DevMDStdStreamPassiveSource(LiString const &name,
                                                         LiString const &description)
    : _name(name), _description(description)
{}

DevMDStdStreamPassiveSource::~DevMDStdStreamPassiveSource() = default;

DevMDStdStreamPassiveSinkANOFactory::~DevMDStdStreamPassiveSinkANOFactory() noexcept(false) =
    default;

DevMDStdStreamPassiveSink::DevMDStdStreamPassiveSink(
    LiString name, LiString description, RCShdPtr<DevMDStdFifo> fifo,
    ObjPtr<DevMDStdStreamPassiveSinkANOFactory> anoFactory)
    : _name(name), _description(description), _fifo(fifo), _anoFactory(anoFactory)
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

} // namespace Zv
