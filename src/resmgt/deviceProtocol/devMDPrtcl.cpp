#include "resmgt/deviceProtocol/devMDAccessPrtcl.h"
#include "resmgt/deviceProtocol/devMDPropertyPrtcl.h"
#include "resmgt/deviceProtocol/devMDStreamPrtcl.h"
#include "resmgt/deviceProtocol/devMDSyncSeqPrtcl.h"

namespace Zv {

// The key functions: type information of each protocol stands in this library once, or casts between libraries fail.

DevMDPrtcl::~DevMDPrtcl() = default;

DevMDAccessPrtcl::~DevMDAccessPrtcl() = default;

DevMDSyncSeqPrtcl::~DevMDSyncSeqPrtcl() = default;

DevMDStreamPrtcl::~DevMDStreamPrtcl() = default;

DevMDPropertyPrtcl::~DevMDPropertyPrtcl() = default;

} // namespace Zv
