#include "resmgt/xml/xmlParser.h"

#include "resmgt/xml/xmlEx.h"
#include "resmgt/xml/xmlScanner.private.h"
#include "zvbase/failures.h"
#include "zvbase/objPtr.h"

namespace Zv {

namespace {

/// Follows the grammar. Each open element leaves the same entries on the stack of a parser, so a
/// count of open elements replaces the stack.
class Parser
{
public:
    Parser(XmlParserProtocol &protocol, std::istream &input)
        : _protocol(protocol), _scanner(new XmlScanner(input))
    {}

    void parse()
    {
        prolog();
        do
            content();
        while (_openElements != 0);
        do
            advance();
        while (_token == XmlToken::SPACE);
        require(XmlToken::END);
    }

private:
    static constexpr int STACK_ENTRIES = 10000;
    /// The begin of the element, its attributes, the end of its start tag, the calls for it, and
    /// its content so far.
    static constexpr int ENTRIES_OF_ELEMENT = 5;
    static constexpr int MAX_OPEN_ELEMENTS = STACK_ENTRIES / ENTRIES_OF_ELEMENT;

    void advance() { _token = _scanner->next(); }
    void require(XmlToken token) const
    {
        if (_token != token)
            ZV_THROW(XmlEx::ExSyntaxError);
    }
    void expect(XmlToken token)
    {
        advance();
        require(token);
    }
    void skipSpace()
    {
        while (_token == XmlToken::SPACE)
            advance();
    }

    void prolog();
    void content();
    void startTag();
    bool attribute();
    void closingTag();
    void cdata();

    XmlParserProtocol &_protocol;
    ObjPtr<XmlScanner> _scanner; // too large for a small stack
    XmlToken _token = XmlToken::END;
    int _openElements = 0;
};

/// Reads up to the root, and leaves the start of the root in `_token`.
void Parser::prolog()
{
    advance();
    if (_token == XmlToken::DECLARATION_START) {
        expect(XmlToken::VERSION_VALUE);
        expect(XmlToken::DECLARATION_END);
        _protocol.createXmlDeclaration(_scanner->value());
        advance();
    }
    skipSpace();
    if (_token == XmlToken::DOCTYPE_START) {
        expect(XmlToken::NAME);
        expect(XmlToken::TAG_CLOSE);
        _protocol.createDocumentType(_scanner->name());
        advance();
        skipSpace();
    }
    require(XmlToken::START_TAG);
}

/// Reads one piece of content. At the root its first token is in `_token` already.
void Parser::content()
{
    if (_openElements != 0)
        advance();
    switch (_token) {
    case XmlToken::START_TAG:
        startTag();
        break;
    case XmlToken::END_TAG:
        closingTag();
        break;
    case XmlToken::TEXT:
        _protocol.notifyTextData(_scanner->value());
        break;
    case XmlToken::CDATA_START:
        cdata();
        break;
    default:
        require(XmlToken::SPACE);
    }
}

void Parser::startTag()
{
    if (_openElements == MAX_OPEN_ELEMENTS)
        ZV_THROW(XmlEx::ExSyntaxError);
    expect(XmlToken::NAME);
    _protocol.notifyBeginElement(_scanner->name());
    while (attribute())
        _protocol.pushAttribute(_scanner->name(), _scanner->value());
    if (_token == XmlToken::EMPTY_CLOSE) {
        _protocol.notifyEmptyElementEnd();
        return;
    }
    require(XmlToken::TAG_CLOSE);
    ++_openElements;
    _protocol.notifyStartTagEnd();
}

/// Returns whether there is one. If not, the token that ends the tag is in `_token`.
bool Parser::attribute()
{
    if (_scanner->takePlainAttribute())
        return true;
    advance();
    if (_token != XmlToken::SPACE)
        return false;
    expect(XmlToken::NAME);
    expect(XmlToken::EQUALS);
    expect(XmlToken::ATTRIBUTE_VALUE);
    return true;
}

void Parser::closingTag()
{
    expect(XmlToken::NAME);
    expect(XmlToken::TAG_CLOSE);
    _protocol.notifyClosingElement(_scanner->name());
    --_openElements;
}

void Parser::cdata()
{
    expect(XmlToken::CDATA_CONTENT);
    expect(XmlToken::CDATA_END);
    _protocol.notifyCharacterData(_scanner->value());
}

} // namespace

XmlParserProtocol::XmlParserProtocol() = default;
XmlParserProtocol::~XmlParserProtocol() noexcept(false) = default;

void XmlParserProtocol::createXmlDeclaration(LiString const &) {}
void XmlParserProtocol::createDocumentType(LiString const &) {}
void XmlParserProtocol::notifyBeginElement(LiString const &) {}
void XmlParserProtocol::notifyEmptyElementEnd() {}
void XmlParserProtocol::notifyStartTagEnd() {}
void XmlParserProtocol::notifyClosingElement(LiString const &) {}
void XmlParserProtocol::pushAttribute(LiString const &, LiString const &) {}
void XmlParserProtocol::notifyTextData(LiString const &) {}
void XmlParserProtocol::notifyCharacterData(LiString const &) {}

void XmlParser::parse(XmlParserProtocol &protocol, std::istream &input)
{
    Parser(protocol, input).parse();
}

} // namespace Zv
