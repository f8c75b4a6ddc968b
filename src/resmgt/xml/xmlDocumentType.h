// The type of a document.
#pragma once

#include "resmgt/xml/xmlNode.h"

namespace Zv {

/// The name in `<!DOCTYPE name>`.
class ZVRESMGT_EXPORT XmlDocumentType : public XmlNode
{
public:
    explicit XmlDocumentType(LiString const &name) : XmlNode(name) {}
    ~XmlDocumentType() noexcept(false) override;
};

} // namespace Zv
