#include "fuzzing.h"

#include "resmgt/xml.h"
#include "resmgt/xml/xmlInput.private.h"

#include <sstream>
#include <string>

namespace ZvTest {

using namespace Zv;

namespace {

class Recorder : public XmlParserProtocol
{
public:
    void createXmlDeclaration(LiString const &version) override { add('?', version); }
    void createDocumentType(LiString const &name) override { add('!', name); }
    void notifyBeginElement(LiString const &name) override { add('<', name); }
    void notifyEmptyElementEnd() override { told += '/'; }
    void notifyStartTagEnd() override { told += '>'; }
    void notifyClosingElement(LiString const &name) override { add('e', name); }
    void pushAttribute(LiString const &name, LiString const &value) override
    {
        add('=', name);
        add('"', value);
    }
    void notifyTextData(LiString const &data) override
    {
        ZV_FUZZ_CHECK(!data.isEmpty());
        add('t', data);
    }
    void notifyCharacterData(LiString const &data) override { add('c', data); }

    std::string told;

private:
    void add(char kind, LiString const &text)
    {
        told += kind;
        told.append(text.getChars(), static_cast<std::size_t>(text.getLength()));
        told += '\n';
    }
};

std::string toldOf(std::string const &text)
{
    Recorder recorder;
    std::istringstream input(text);
    try {
        XmlParser::parse(recorder, input);
    } catch (XmlEx const &failure) {
        return recorder.told + failure.getReason();
    }
    return recorder.told + "ok";
}

std::string textOf(XmlDocument const &document)
{
    std::ostringstream stream;
    stream << document;
    return stream.str();
}

/// Element that represents its children by itself.
struct Element : XmlBaseElement
{
    explicit Element(LiString const &tag) : name(tag) {}
    XmlBaseElement *createElement(XmlReader &, LiString const &, XmlAttributeList const &) override
    {
        return this;
    }
    LiString getTagName() const override { return name; }
    void performWrite(XmlWriter &) override {}
    void performRead(XmlAttributeList const &attributes) override
    {
        for (int i = 0; i < attributes.getLength(); ++i)
            ZV_FUZZ_CHECK(attributes.exists(attributes.getName(i)));
    }
    void performReadEnd() override {}
    LiString name;
};

struct Builder : XmlBaseElementBuilder
{
    XmlBaseElement *createElement(XmlReader &, LiString const &name,
                                  XmlAttributeList const &) override
    {
        return new Element(name);
    }
};

} // namespace

ZV_FUZZ(xml)
{
    std::string const text(reinterpret_cast<char const *>(data), size);
    std::string const told = toldOf(text);

    // The blocks of the input make no difference. The text is read again with the end of a block at
    // some place in it.
    std::size_t const before = size == 0 ? 0 : (data[0] * 256u + data[size - 1]) % (size + 1);
    std::string const filling(2 * XmlInput::BLOCK - 7 - before % XmlInput::BLOCK, 'x');
    ZV_FUZZ_CHECK(toldOf("<!--" + filling + "-->" + text) == told);

    // A document can be read again from what it writes.
    try {
        std::istringstream input(text);
        std::string const written = textOf(XmlDocument(input));
        ZV_FUZZ_CHECK(textOf(XmlDocument(LiString(written.data(), written.size()))) == written);
        ZV_FUZZ_CHECK(told.ends_with("ok"));
    } catch (XmlEx const &) {
    }

    try {
        Builder builder;
        XmlReader reader(builder);
        ObjPtr<XmlBaseElement> const element(reader.buildElement(LiString(text.data(), size)));
        ZV_FUZZ_CHECK(!element.isNull());
        ZV_FUZZ_CHECK(told.ends_with("ok"));
    } catch (XmlEx const &) {
    }
}

} // namespace ZvTest
