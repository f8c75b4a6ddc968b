#include "resmgt/deviceProtocol/devMDPrtcl.h"

namespace Zv {

// The key functions. They give each face one place for its type information, which casts between
// libraries need.

DevMDPrtcl::~DevMDPrtcl() = default;

DevMDAccessPrtcl::~DevMDAccessPrtcl() = default;

DevMDSyncSeqPrtcl::~DevMDSyncSeqPrtcl() = default;

} // namespace Zv
