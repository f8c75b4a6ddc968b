#include "showElement.h"

#include "playoutEx.h"
#include "showReader.h"

using namespace Zv;

XmlBaseElement *ShowElement::createElement(XmlReader &reader, LiString const &name,
                                           XmlAttributeList const &)
{
    ShowElement * const child =
        makeChild(std::string(name.getChars(), static_cast<std::size_t>(name.getLength())));
    if (!child)
        ZV_THROW(PlayoutEx::Client, ("it has no place in " + std::string(_tag)).c_str());
    child->_where = static_cast<ShowReader &>(reader).getWhere();
    return child;
}

void ShowElement::performRead(XmlAttributeList const &attributes)
{
    ShowAttributesRead read(attributes);
    performAttributes(read);
    read.finish();
}

void ShowElement::performWrite(XmlWriter &writer)
{
    ShowAttributesWritten written(writer);
    performAttributes(written);
    forEachChild([&](ShowElement &child) { writer.writeElement(child); });
}

void ShowElement::requireFree(bool isFree)
{
    if (!isFree)
        ZV_THROW(PlayoutEx::Client, "a show has one at most");
}
