// Grammar of XML, over tokens.
#pragma once

#include "resmgt/xml/xmlEx.h"
#include "resmgt/xml/xmlScanner.private.h"
#include "zvbase/failures.h"

#include <string>
#include <string_view>

namespace Zv {

/// Reads a document and reports its parts to a sink, in the order of the text and as soon as each
/// has been read. The sink has an operation for each kind of part, with the name and purpose of the
/// one of `XmlParserProtocol`, and gets views.
///
/// Each open element leaves the same entries on the stack of a parser, so a count of open elements
/// replaces the stack.
template <class Sink>
class XmlParsing
{
public:
    /// If `keeper` is not null, what the sink gets is valid as long as the keeper. Otherwise it is
    /// valid during the call.
    XmlParsing(Sink &sink, std::istream &input, XmlBlocks *keeper)
        : _sink(sink), _scanner(input, keeper)
    {}

    void parse()
    {
        prolog();
        startTag();
        while (_openElements != 0)
            content();
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

    void advance() { _token = _scanner.next(); }
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

    /// Reads up to the root, whose `<` is the last token.
    void prolog()
    {
        advance();
        if (_token == XmlToken::DECLARATION_START) {
            expect(XmlToken::VERSION_VALUE);
            std::string const version(_scanner.value());
            expect(XmlToken::DECLARATION_END);
            _sink.createXmlDeclaration(version);
            advance();
        }
        skipSpace();
        if (_token == XmlToken::DOCTYPE_START) {
            expect(XmlToken::NAME);
            expect(XmlToken::TAG_CLOSE);
            _sink.createDocumentType(_scanner.name());
            advance();
            skipSpace();
        }
        require(XmlToken::START_TAG);
    }

    /// Reads one piece of content.
    void content()
    {
        switch (_scanner.takePlainContent()) {
        case XmlPlain::START_TAG:
            checkDepth();
            restOfStartTag();
            break;
        case XmlPlain::END_TAG:
            endElement();
            break;
        case XmlPlain::TEXT:
            _sink.notifyTextData(_scanner.value());
            break;
        default:
            otherContent();
        }
    }

    void otherContent()
    {
        advance();
        switch (_token) {
        case XmlToken::START_TAG:
            startTag();
            break;
        case XmlToken::END_TAG:
            expect(XmlToken::NAME);
            expect(XmlToken::TAG_CLOSE);
            endElement();
            break;
        case XmlToken::TEXT:
            _sink.notifyTextData(_scanner.value());
            break;
        case XmlToken::CDATA_START:
            expect(XmlToken::CDATA_CONTENT);
            expect(XmlToken::CDATA_END);
            _sink.notifyCharacterData(_scanner.value());
            break;
        default:
            require(XmlToken::SPACE);
        }
    }

    void checkDepth() const
    {
        if (_openElements == MAX_OPEN_ELEMENTS)
            ZV_THROW(XmlEx::ExSyntaxError);
    }

    void startTag()
    {
        checkDepth();
        expect(XmlToken::NAME);
        restOfStartTag();
    }

    void restOfStartTag()
    {
        _sink.notifyBeginElement(_scanner.name());
        std::string_view name, value;
        while (_scanner.takePlainAttribute(name, value) || otherAttribute(name, value))
            _sink.pushAttribute(name, value);
        if (_token == XmlToken::EMPTY_CLOSE) {
            _sink.notifyEmptyElementEnd();
            return;
        }
        require(XmlToken::TAG_CLOSE);
        ++_openElements;
        _sink.notifyStartTagEnd();
    }

    /// Returns whether there is an attribute. If there is none, the token that ends the tag is in
    /// `_token`.
    bool otherAttribute(std::string_view &name, std::string_view &value)
    {
        switch (_scanner.takePlainTagEnd()) {
        case XmlPlain::TAG_CLOSE:
            _token = XmlToken::TAG_CLOSE;
            return false;
        case XmlPlain::EMPTY_CLOSE:
            _token = XmlToken::EMPTY_CLOSE;
            return false;
        default:
            break;
        }
        advance();
        if (_token != XmlToken::SPACE)
            return false;
        expect(XmlToken::NAME);
        expect(XmlToken::EQUALS);
        expect(XmlToken::ATTRIBUTE_VALUE);
        name = _scanner.name();
        value = _scanner.value();
        return true;
    }

    void endElement()
    {
        _sink.notifyClosingElement(_scanner.name());
        --_openElements;
    }

    Sink &_sink;
    XmlScanner _scanner;
    XmlToken _token = XmlToken::END;
    int _openElements = 0;
};

} // namespace Zv
