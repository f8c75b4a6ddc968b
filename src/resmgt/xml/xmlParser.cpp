#include "resmgt/xml/xmlParser.h"

#include "resmgt/xml/xmlNames.private.h"
#include "resmgt/xml/xmlParsing.private.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace Zv {

namespace {

/// Gives strings to a protocol.
class ProtocolSink
{
public:
    explicit ProtocolSink(XmlParserProtocol &protocol) : _protocol(protocol) {}

    void createXmlDeclaration(std::string_view version)
    {
        _protocol.createXmlDeclaration(valueOf(version));
    }
    void createDocumentType(std::string_view name) { _protocol.createDocumentType(nameOf(name)); }
    void notifyBeginElement(std::string_view name) { _protocol.notifyBeginElement(nameOf(name)); }
    void notifyEmptyElementEnd() { _protocol.notifyEmptyElementEnd(); }
    void notifyStartTagEnd() { _protocol.notifyStartTagEnd(); }
    void notifyClosingElement(std::string_view name)
    {
        _protocol.notifyClosingElement(nameOf(name));
    }
    void pushAttribute(std::string_view name, std::string_view value)
    {
        _protocol.pushAttribute(nameOf(name), valueOf(value));
    }
    void notifyTextData(std::string_view data) { _protocol.notifyTextData(valueOf(data)); }
    void notifyCharacterData(std::string_view data)
    {
        _protocol.notifyCharacterData(valueOf(data));
    }

private:
    LiString const &nameOf(std::string_view name) { return _names.get(name); }
    LiString const &valueOf(std::string_view value)
    {
        _turn = (_turn + 1) % VALUES;
        _values[_turn].assign(value.data(), value.size());
        return _values[_turn];
    }

    /// So many values are kept in turn. The memory of a value is used again if no handler keeps it.
    static constexpr std::size_t VALUES = 8;

    XmlParserProtocol &_protocol;
    XmlNames _names;
    std::array<LiString, VALUES> _values;
    std::size_t _turn = 0;
};

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
    ProtocolSink sink(protocol);
    XmlParsing<ProtocolSink>(sink, input, nullptr).parse();
}

} // namespace Zv
