#include "resmgt/xml/xmlDocumentType.h"

namespace Zv {

XmlDocumentType::~XmlDocumentType() noexcept(false) = default;

} // namespace Zv
