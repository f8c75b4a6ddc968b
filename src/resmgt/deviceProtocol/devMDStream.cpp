#include "resmgt/deviceProtocol/devMDStream.h"

namespace Zv {

DevMDStreamBuf::~DevMDStreamBuf() = default;

DevMDStreamElem::DevMDStreamElem(RCShdPtr<DevMDStreamBuf> const &buf, Ev ev) : _buf(buf), _ev(ev) {}

DevMDStreamFormat::~DevMDStreamFormat() = default;

DevMDStream::~DevMDStream() = default;

DevMDStreamSource::~DevMDStreamSource() = default;

DevMDStreamSink::~DevMDStreamSink() = default;

DevMDStreamPassiveSink::~DevMDStreamPassiveSink() = default;

DevMDStreamPassiveSource::~DevMDStreamPassiveSource() = default;

DevMDStreamActiveSource::~DevMDStreamActiveSource() = default;

DevMDStreamActiveSink::~DevMDStreamActiveSink() = default;

DevMDStreamPrtcl::~DevMDStreamPrtcl() = default;

} // namespace Zv
