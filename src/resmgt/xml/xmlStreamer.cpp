#include "resmgt/xml/xmlStreamer.h"

#include "resmgt/xml/xmlEx.h"
#include "resmgt/xml/xmlPiece.private.h"
#include "zvbase/failures.h"
#include "zvbase/scope.private.h"

#include <locale>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

namespace Zv {

namespace {

using Piece = XmlPiece<256>;

std::string_view orEmpty(char const *text)
{
    return text ? text : "";
}

/// Writes the number in the format of the stream, and the end of its attribute. The locale is "C",
/// because readers do not know that of the stream.
template <class Number>
void addNumber(std::ostream &output, Number number)
{
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text.flags(output.flags());
    text.precision(output.precision());
    text.fill(output.fill());
    text.width(output.width(0));
    text << number << "\" ";
    std::string const bytes = text.str();
    output.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

} // namespace

/// The guard of the document, which has one root.
class XmlStreamer::DocumentGuard : public XmlStreamer::NodeGuard
{
public:
    explicit DocumentGuard(std::ostream &output) : NodeGuard(nullptr, output) {}

    void setContent() override
    {
        if (NodeGuard::setContent(true))
            ZV_THROW(XmlEx::ExSyntaxError);
    }
};

XmlStreamer::XmlStreamer(std::ostream &output, bool writeDeclaration, LiString const &documentType)
    : _output(output), _document(new DocumentGuard(output))
{
    Piece prolog(_output);
    if (writeDeclaration)
        prolog.add("<?xml version=\"1.0\"?>\n");
    if (!documentType.isEmpty()) {
        prolog.add("<!DOCTYPE ");
        prolog.add(Piece::bytesOf(documentType));
        prolog.add(">\n");
    }
    prolog.write();
}

XmlStreamer::~XmlStreamer() noexcept(false) = default;

XmlStreamer::NodeGuard &XmlStreamer::getDocument() const
{
    return *_document;
}

XmlStreamer::NodeGuard::~NodeGuard() noexcept(false) = default;

bool XmlStreamer::NodeGuard::setContent(bool content)
{
    return std::exchange(_content, content);
}

XmlStreamer::ElementGuard::ElementGuard(XmlStreamer &streamer, LiString const &name)
    : ElementGuard(streamer.getDocument(), name, streamer._output)
{}

XmlStreamer::ElementGuard::ElementGuard(ElementGuard &parent, LiString const &name)
    : ElementGuard(parent, name, parent.getOutput())
{}

XmlStreamer::ElementGuard::ElementGuard(NodeGuard &parent, LiString const &name,
                                        std::ostream &output)
    : NodeGuard(&parent, output), _name(name)
{
    parent.setContent();
    Piece start(output);
    start.addStart(Piece::bytesOf(_name));
    start.write();
}

XmlStreamer::ElementGuard::~ElementGuard() noexcept(false)
{
    throwUnlessUnwinding(_unwinding, __FILE__, __LINE__, [this] { close(); });
}

void XmlStreamer::ElementGuard::close()
{
    Piece end(getOutput());
    if (hasContent())
        end.addEnd(Piece::bytesOf(_name));
    else
        end.addEmptyEnd();
    end.write();
}

void XmlStreamer::ElementGuard::setContent()
{
    if (!NodeGuard::setContent(true))
        getOutput().write(">\n", 2);
}

void XmlStreamer::ElementGuard::checkAttributesMayCome() const
{
    if (hasContent())
        ZV_THROW(XmlEx::ExSyntaxError);
}

std::ostream &XmlStreamer::ElementGuard::addAttribute(char const *name)
{
    checkAttributesMayCome();
    Piece start(getOutput());
    start.addStartOfAttribute(orEmpty(name));
    start.write();
    return getOutput();
}

void XmlStreamer::ElementGuard::addAttribute(char const *name, char const *value)
{
    checkAttributesMayCome();
    Piece attribute(getOutput());
    attribute.addAttribute(orEmpty(name), orEmpty(value));
    attribute.write();
}

void XmlStreamer::ElementGuard::addAttribute(char const *name, int value)
{
    addNumber(addAttribute(name), value);
}

void XmlStreamer::ElementGuard::addAttribute(char const *name, double value)
{
    addNumber(addAttribute(name), value);
}

void XmlStreamer::ElementGuard::addTextData(char const *text)
{
    setContent();
    std::string_view const bytes = orEmpty(text);
    getOutput().write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void XmlStreamer::ElementGuard::addCharacterData(char const *text)
{
    setContent();
    Piece section(getOutput());
    section.add("<![CDATA[");
    section.add(orEmpty(text));
    section.add("]]");
    section.write();
}

} // namespace Zv
