#include "resmgt/xml/xmlStreamer.h"

#include "resmgt/xml/xmlEx.h"
#include "zvbase/failures.h"

#include <array>
#include <cstring>
#include <exception>
#include <ostream>

namespace Zv {

namespace {

/// A few bytes on their way to the stream, which gets them in one call.
class Piece
{
public:
    explicit Piece(std::ostream &stream) : _stream(stream) {}

    void add(char const *bytes, std::size_t count)
    {
        if (count > _bytes.size() - _used) {
            write();
            if (count > _bytes.size()) {
                _stream.write(bytes, static_cast<std::streamsize>(count));
                return;
            }
        }
        std::memcpy(_bytes.data() + _used, bytes, count);
        _used += count;
    }
    template <std::size_t N>
    void add(char const (&text)[N])
    {
        add(text, N - 1);
    }
    void add(LiString const &text) { add(text.getChars(), std::strlen(text.getChars())); }
    void write()
    {
        if (_used != 0)
            _stream.write(_bytes.data(), static_cast<std::streamsize>(_used));
        _used = 0;
    }

private:
    std::ostream &_stream;
    std::size_t _used = 0;
    std::array<char, 256> _bytes{};
};

constexpr bool isSpecial(char c)
{
    return c == '"' || c == '&' || c == '\'' || c == '<' || c == '>' || c == '\0';
}

constexpr auto SPECIAL = [] {
    std::array<bool, 256> table{};
    for (int c = 0; c < 256; ++c)
        table[static_cast<std::size_t>(c)] = isSpecial(static_cast<char>(c));
    return table;
}();

void addEscaped(Piece &piece, char const *text)
{
    for (;;) {
        char const *end = text;
        while (!SPECIAL[static_cast<unsigned char>(*end)])
            ++end;
        piece.add(text, static_cast<std::size_t>(end - text));
        switch (*end) {
        case '"':
            piece.add("&quot;");
            break;
        case '&':
            piece.add("&amp;");
            break;
        case '\'':
            piece.add("&apos;");
            break;
        case '<':
            piece.add("&lt;");
            break;
        case '>':
            piece.add("&gt;");
            break;
        default:
            return;
        }
        text = end + 1;
    }
}

} // namespace

/// Stands for the document: it has one root.
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
        prolog.add(documentType);
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
    start.add("<");
    start.add(_name);
    start.add(" ");
    start.write();
}

XmlStreamer::ElementGuard::~ElementGuard() noexcept(false)
{
    try {
        close();
    } catch (...) {
        if (!std::uncaught_exceptions())
            throw;
    }
}

void XmlStreamer::ElementGuard::close()
{
    Piece end(getOutput());
    if (hasContent()) {
        end.add("</");
        end.add(_name);
        end.add(">\n");
    } else {
        end.add("/>\n");
    }
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
    if (name)
        start.add(name, std::strlen(name));
    start.add("=\"");
    start.write();
    return getOutput();
}

void XmlStreamer::ElementGuard::addAttribute(char const *name, char const *value)
{
    checkAttributesMayCome();
    Piece attribute(getOutput());
    if (name)
        attribute.add(name, std::strlen(name));
    attribute.add("=\"");
    addEscaped(attribute, value ? value : "");
    attribute.add("\" ");
    attribute.write();
}

void XmlStreamer::ElementGuard::addAttribute(char const *name, int value)
{
    addAttribute(name) << value << "\" ";
}

void XmlStreamer::ElementGuard::addAttribute(char const *name, double value)
{
    addAttribute(name) << value << "\" ";
}

void XmlStreamer::ElementGuard::addTextData(char const *text)
{
    setContent();
    if (text)
        getOutput().write(text, static_cast<std::streamsize>(std::strlen(text)));
}

void XmlStreamer::ElementGuard::addCharacterData(char const *text)
{
    setContent();
    Piece section(getOutput());
    section.add("<![CDATA[");
    if (text)
        section.add(text, std::strlen(text));
    section.add("]]");
    section.write();
}

} // namespace Zv
