// Reads clients' own classes from XML.
#pragma once

#include "resmgt/locks/lkMutex.h"
#include "resmgt/xml/xmlBaseElement.h"
#include "resmgt/xml/xmlParserProtocolSax.h"
#include "zvbase/objPtr.h"

#include <vector>

namespace Zv {

/// Builds a tree of `XmlBaseElement`s: each tag becomes an element that the element around it makes, and the root is
/// made by the builder given.
///
///     XmlReader reader(builder);
///     ObjPtr<XmlBaseElement> show(reader.buildElementFromFile("show.xml"));
///
/// A reader may be used by several threads, which wait for each other, and from within one of its own elements, which
/// parses another text then. Text and CDATA sections are skipped, and names of closing tags are not compared.
class ZVRESMGT_EXPORT XmlReader : public XmlParserProtocolSax
{
public:
    /// The builder outlives the reader.
    explicit XmlReader(XmlBaseElementBuilder &builder);
    XmlReader(XmlReader const &) = delete;
    XmlReader &operator=(XmlReader const &) = delete;
    ~XmlReader() noexcept(false) override;

    /// Parses the stream to its end and hands the root to the caller. Blocks while another thread builds. Throws as
    /// `XmlParser::parse` does, and what builders and elements throw: the root is destroyed then.
    ObjPtrRet<XmlBaseElement> buildElement(std::istream &input);
    ObjPtrRet<XmlBaseElement> buildElement(LiString const &text);
    /// A file that cannot be read is read as an empty one: `XmlEx::ExSyntaxError`.
    ObjPtrRet<XmlBaseElement> buildElementFromFile(LiString const &fileName);
    XmlBaseElementBuilder &getElementBuilder() const;

    void createXmlDeclaration(LiString const &version) override;
    void createDocumentType(LiString const &name) override;
    void notifyTextData(LiString const &data) override;
    void notifyCharacterData(LiString const &data) override;
    /// Has the innermost open element make the new one.
    void startElement(LiString const &name, XmlAttributeList const &attributes) override;
    /// Ends the innermost open element. Throws `XmlEx::ExSyntaxError` where none is open.
    void endElement(LiString const &name) override;

private:
    class Build;

    XmlBaseElementBuilder &_builder;
    LkMutex _lock;
    std::vector<XmlBaseElement *> _elements; // open ones, each but the first one its parent's
    ObjPtr<XmlBaseElement> _root;
};

} // namespace Zv
