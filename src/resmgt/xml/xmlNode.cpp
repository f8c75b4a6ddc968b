#include "resmgt/xml/xmlNode.h"

namespace Zv {

XmlNode::~XmlNode() noexcept(false) = default;

} // namespace Zv
