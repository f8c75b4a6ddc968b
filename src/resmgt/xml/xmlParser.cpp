#include "resmgt/xml/xmlParser.h"

#include "resmgt/xml/xmlEx.h"
#include "resmgt/xml/xmlParserProtocol.h"
#include "resmgt/xml/xmlScanner.private.h"
#include "zvbase/failures.h"
#include "zvbase/objPtr.h"

namespace Zv {

namespace {

/// Follows the grammar. Everything that an open element leaves on a parser's stack is the same for all of them, so that
/// a number does for the stack.
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
        while (_token == XmlToken::space);
        require(XmlToken::end);
    }

private:
    static constexpr int STACK_ENTRIES = 10000;
    /// The begin of the element, its attributes, the end of its start tag, what was told of it, its content so far.
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
        while (_token == XmlToken::space)
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
    XmlToken _token = XmlToken::end;
    int _openElements = 0;
};

/// Up to the root, whose start it leaves in `_token`.
void Parser::prolog()
{
    advance();
    if (_token == XmlToken::declarationStart) {
        expect(XmlToken::versionValue);
        expect(XmlToken::declarationEnd);
        _protocol.createXmlDeclaration(_scanner->value());
        advance();
    }
    skipSpace();
    if (_token == XmlToken::doctypeStart) {
        expect(XmlToken::name);
        expect(XmlToken::tagClose);
        _protocol.createDocumentType(_scanner->name());
        advance();
        skipSpace();
    }
    require(XmlToken::startTag);
}

/// One piece of content, the first of which is in `_token` at the root only.
void Parser::content()
{
    if (_openElements != 0)
        advance();
    switch (_token) {
    case XmlToken::startTag:
        startTag();
        break;
    case XmlToken::endTag:
        closingTag();
        break;
    case XmlToken::text:
        _protocol.notifyTextData(_scanner->value());
        break;
    case XmlToken::cdataStart:
        cdata();
        break;
    default:
        require(XmlToken::space);
    }
}

void Parser::startTag()
{
    if (_openElements == MAX_OPEN_ELEMENTS)
        ZV_THROW(XmlEx::ExSyntaxError);
    expect(XmlToken::name);
    _protocol.notifyBeginElement(_scanner->name());
    while (attribute())
        _protocol.pushAttribute(_scanner->name(), _scanner->value());
    if (_token == XmlToken::emptyClose) {
        _protocol.notifyEmptyElementEnd();
        return;
    }
    require(XmlToken::tagClose);
    ++_openElements;
    _protocol.notifyStartTagEnd();
}

/// Whether there is one; if not, what ends the tag is in `_token`.
bool Parser::attribute()
{
    if (_scanner->takePlainAttribute())
        return true;
    advance();
    if (_token != XmlToken::space)
        return false;
    expect(XmlToken::name);
    expect(XmlToken::equals);
    expect(XmlToken::attributeValue);
    return true;
}

void Parser::closingTag()
{
    expect(XmlToken::name);
    expect(XmlToken::tagClose);
    _protocol.notifyClosingElement(_scanner->name());
    --_openElements;
}

void Parser::cdata()
{
    expect(XmlToken::cdataContent);
    expect(XmlToken::cdataEnd);
    _protocol.notifyCharacterData(_scanner->value());
}

} // namespace

void XmlParser::parse(XmlParserProtocol &protocol, std::istream &input)
{
    Parser(protocol, input).parse();
}

} // namespace Zv
