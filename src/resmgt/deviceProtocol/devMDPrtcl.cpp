#include "resmgt/deviceProtocol/devMDPrtcl.h"

namespace Zv {

// The destructors are defined here, so that the type information of each interface exists once.
// Casts between libraries need that.

DevMDPrtcl::~DevMDPrtcl() = default;

DevMDAccessPrtcl::~DevMDAccessPrtcl() = default;

DevMDSyncSeqPrtcl::~DevMDSyncSeqPrtcl() = default;

} // namespace Zv
