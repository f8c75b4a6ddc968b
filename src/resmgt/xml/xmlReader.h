// Reads objects of application classes from XML (applications).
#pragma once

#include "resmgt/locks/lkMutex.h"
#include "resmgt/xml/xmlBaseElement.h"
#include "resmgt/xml/xmlParserProtocolSax.h"
#include "zvbase/objPtr.h"

#include <vector>

namespace Zv {

/// Builds a tree of `XmlBaseElement`s. The builder creates the root, and each element creates the
/// elements in it.
///
///     class Clip : public XmlBaseElement
///     {
///     public:
///         LiString getTagName() const override { return "clip"; }
///         void performWrite(XmlWriter &writer) override { writer.writeAttribute("file", file); }
///         void performRead(XmlAttributeList const &attributes) override
///         {
///             file = attributes.getValue("file");
///         }
///         void performReadEnd() override {}
///         XmlBaseElement *createElement(XmlReader &, LiString const &,
///                                       XmlAttributeList const &) override
///         {
///             return nullptr; // a clip has no children
///         }
///
///         LiString file;
///     };
///
///     class ClipBuilder : public XmlBaseElementBuilder
///     {
///         XmlBaseElement *createElement(XmlReader &, LiString const &,
///                                       XmlAttributeList const &) override
///         {
///             return new Clip;
///         }
///     };
///
///     void readClip()
///     {
///         ClipBuilder builder;
///         XmlReader reader(builder);
///         ObjPtr<XmlBaseElement> clip(reader.buildElement("<clip file='a.wav'/>"));
///         std::cout << XmlWriter().toXml(*clip);
///     }
///
/// Text and CDATA sections are skipped, and the names of closing tags are not compared.
///
/// **Threads**: thread-safe. An element that is being read may use the same reader for another
/// text.
class ZVRESMGT_EXPORT XmlReader : public XmlParserProtocolSax
{
public:
    /// **Owns**: the reader uses the builder, which must outlive it.
    explicit XmlReader(XmlBaseElementBuilder &builder);
    XmlReader(XmlReader const &) = delete;
    XmlReader &operator=(XmlReader const &) = delete;
    ~XmlReader() noexcept(false) override;

    /// Parses the stream to its end and returns the root.
    ///
    /// **Blocks** while another thread uses the reader, and while reading from the stream blocks.
    ///
    /// **Throws** what `XmlParser::parse` throws, and every exception of a builder or an element.
    /// The root is destroyed then.
    ObjPtrRet<XmlBaseElement> buildElement(std::istream &input);
    /// Parses a text, and otherwise does what the form for a stream does.
    ObjPtrRet<XmlBaseElement> buildElement(LiString const &text);
    /// Parses a file, and otherwise does what the form for a stream does. Throws
    /// `XmlEx::ExSyntaxError` if the file cannot be read, because it counts as an empty one.
    ObjPtrRet<XmlBaseElement> buildElementFromFile(LiString const &fileName);
    XmlBaseElementBuilder &getElementBuilder() const;

    void createXmlDeclaration(LiString const &version) override;
    void createDocumentType(LiString const &name) override;
    void notifyTextData(LiString const &data) override;
    void notifyCharacterData(LiString const &data) override;
    /// Lets the innermost open element create the new one.
    void startElement(LiString const &name, XmlAttributeList const &attributes) override;
    /// Ends the innermost open element. Throws `XmlEx::ExSyntaxError` if no element is open.
    void endElement(LiString const &name) override;

private:
    class Build;

    XmlBaseElementBuilder &_builder;
    LkMutex _lock;
    std::vector<XmlBaseElement *> _elements; // open ones, each but the first one its parent's
    ObjPtr<XmlBaseElement> _root;
};

} // namespace Zv
