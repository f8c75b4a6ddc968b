#include "resmgt/xml/xmlBaseElement.h"

namespace Zv {

XmlBaseElementBuilder::XmlBaseElementBuilder() = default;
XmlBaseElementBuilder::~XmlBaseElementBuilder() noexcept(false) = default;

XmlBaseElement::XmlBaseElement() = default;

XmlTopElement::XmlTopElement() = default;

LiString XmlTopElement::getDocumentTypeName() const
{
    return getTagName();
}

} // namespace Zv
