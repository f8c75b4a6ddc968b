#include "groupingLocale.h"
#include "xmlTesting.h"

#include <iomanip>
#include <memory>
#include <streambuf>

namespace ZvTest {
namespace {

using Guard = XmlStreamer::ElementGuard;

// XmlStreamer

struct XmlStreamerTest : testing::Test
{
    /// What was written since the last call.
    std::string written()
    {
        std::string const text = stream.str();
        stream.str("");
        return text;
    }

    std::ostringstream stream;
    std::unique_ptr<XmlStreamer> ownStreamer =
        std::make_unique<XmlStreamer>(stream, false, LiString());
    XmlStreamer &streamer = *ownStreamer;
};

TEST_F(XmlStreamerTest, WritesItsPrologAtOnce)
{
    XmlStreamer const whole(stream, true, "show");
    EXPECT_EQ("<?xml version=\"1.0\"?>\n<!DOCTYPE show>\n", written());
    XmlStreamer const declaration(stream, true, LiString());
    EXPECT_EQ("<?xml version=\"1.0\"?>\n", written());
    XmlStreamer const type(stream, false, "show");
    EXPECT_EQ("<!DOCTYPE show>\n", written());
    XmlStreamer const nothing(stream, false, LiString());
    EXPECT_EQ("", written());
}

TEST_F(XmlStreamerTest, AnElementWithoutContentIsEmpty)
{
    {
        Guard const a(streamer, "a");
        EXPECT_EQ("<a ", written());
        EXPECT_FALSE(a.hasContent());
    }
    EXPECT_EQ("/>\n", written());
}

TEST_F(XmlStreamerTest, AChildEndsTheStartTagOfItsParent)
{
    {
        Guard a(streamer, "a");
        written();
        {
            Guard const b(a, "b");
            EXPECT_EQ(">\n<b ", written());
            EXPECT_TRUE(a.hasContent());
        }
        EXPECT_EQ("/>\n", written());
        {
            Guard c(a, "c");
            Guard const d(c, "d");
            EXPECT_EQ("<c >\n<d ", written());
        }
        EXPECT_EQ("/>\n</c>\n", written());
    }
    EXPECT_EQ("</a>\n", written());
}

TEST_F(XmlStreamerTest, AttributesAreEscaped)
{
    Guard a(streamer, "a");
    written();
    a.addAttribute("a", "x<y");
    EXPECT_EQ("a=\"x&lt;y\" ", written());
    a.addAttribute("b", "\"&'<>\xFF\n]");
    EXPECT_EQ("b=\"&quot;&amp;&apos;&lt;&gt;\xFF\n]\" ", written());
    a.addAttribute("c", "");
    EXPECT_EQ("c=\"\" ", written());
    a.addAttribute("d", static_cast<char const *>(nullptr));
    EXPECT_EQ("d=\"\" ", written());
    std::string const value(1000, 'x');
    a.addAttribute("e", (value + "&" + value).c_str());
    EXPECT_EQ("e=\"" + value + "&amp;" + value + "\" ", written());
    for (std::size_t const length : {250, 251, 252, 253, 254, 255, 256, 257}) {
        std::string const some(length, 'y');
        a.addAttribute("f", (some + "<").c_str());
        EXPECT_EQ("f=\"" + some + "&lt;\" ", written());
    }
}

TEST_F(XmlStreamerTest, NumbersHaveTheFormatOfTheStream)
{
    Guard a(streamer, "a");
    written();
    a.addAttribute("i", -17);
    a.addAttribute("d", 0.5);
    EXPECT_EQ("i=\"-17\" d=\"0.5\" ", written());
    stream << std::hex << std::setprecision(3);
    a.addAttribute("i", 255);
    a.addAttribute("d", 2.0 / 3);
    EXPECT_EQ("i=\"ff\" d=\"0.667\" ", written());
}

TEST_F(XmlStreamerTest, NumbersAreWrittenWhateverLocaleTheStreamHas)
{
    GroupingLocale const locale;
    stream.imbue(std::locale());
    Guard a(streamer, "a");
    written();
    stream.width(9);
    stream.fill('0');
    a.addAttribute("i", 1234567);
    a.addAttribute("d", 12345.5);
    EXPECT_EQ("i=\"001234567\" d=\"12345.5\" ", written());
    stream << 1234567;
    EXPECT_EQ("1.234.567", written()) << "the stream is as it was";
}

TEST_F(XmlStreamerTest, AnAttributeBehindContentIsASyntaxError)
{
    Guard a(streamer, "a");
    a.addTextData("");
    written();
    EXPECT_EQ("Syntax error.", reasonOf<XmlEx::ExSyntaxError>([&] { a.addAttribute("b", "c"); }));
    EXPECT_EQ("Syntax error.", reasonOf<XmlEx::ExSyntaxError>([&] { a.addAttribute("b", 1); }));
    EXPECT_EQ("Syntax error.", reasonOf<XmlEx::ExSyntaxError>([&] { a.addAttribute("b", 1.0); }));
    EXPECT_EQ("", written());
}

TEST_F(XmlStreamerTest, ADocumentHasOneRoot)
{
    {
        Guard const a(streamer, "a");
    }
    written();
    EXPECT_TRUE(streamer.getDocument().hasContent());
    EXPECT_EQ("Syntax error.",
              reasonOf<XmlEx::ExSyntaxError>([&] { Guard const b(streamer, "b"); }));
    EXPECT_EQ("", written());
    EXPECT_EQ(&stream, &streamer.getDocument().getOutput());
}

TEST_F(XmlStreamerTest, TextIsWrittenAsItStands)
{
    {
        Guard a(streamer, "a");
        a.addTextData("x<&y");
        a.addTextData("z");
        a.addTextData(nullptr);
    }
    EXPECT_EQ("<a >\nx<&yz</a>\n", written());
}

TEST_F(XmlStreamerTest, TheLastBracketOfACdataSectionIsTheCallers)
{
    {
        Guard a(streamer, "a");
        a.addCharacterData("x<y");
        a.getOutput() << '>';
        a.addCharacterData(nullptr);
        a.getOutput() << '>';
    }
    std::string const text = written();
    EXPECT_EQ("<a >\n<![CDATA[x<y]]><![CDATA[]]></a>\n", text);
    EXPECT_EQ("begin[a] tagEnd cdata[x<y] cdata[] close[a] ", toldOf(text));
    EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a >\n<![CDATA[x<y]]</a>\n"))
        << "without it nobody reads it";
}

TEST_F(XmlStreamerTest, AClientsOwnGuardMayStandForANode)
{
    EXPECT_FALSE(streamer.getDocument().hasContent());
    streamer.getDocument().setContent();
    EXPECT_TRUE(streamer.getDocument().hasContent());
    EXPECT_THROW(streamer.getDocument().setContent(), XmlEx::ExSyntaxError);
}

/// Takes a number of bytes and then fails.
class FullBuffer : public std::streambuf
{
public:
    explicit FullBuffer(std::size_t room) : _room(room) {}
    std::string text;

protected:
    int_type overflow(int_type c) override
    {
        if (text.size() == _room)
            return traits_type::eof();
        text += traits_type::to_char_type(c);
        return c;
    }

private:
    std::size_t _room;
};

TEST(XmlStreamer, ErrorsOfTheStreamAreNotLookedAt)
{
    FullBuffer buffer(10);
    std::ostream stream(&buffer);
    stream << XmlDocument("<a><b c='d'/></a>");
    EXPECT_EQ("<!DOCTYPE ", buffer.text);
    EXPECT_TRUE(stream.bad());
}

TEST(XmlStreamer, WhatTheStreamThrowsPassesThroughWhereverItComes)
{
    XmlDocument const document("<a x='1'><b c='d'><e/></b><b/></a>");
    std::ostringstream whole;
    whole << document;
    for (std::size_t room = 0; room < whole.str().size(); ++room) {
        FullBuffer buffer(room);
        std::ostream stream(&buffer);
        stream.exceptions(std::ios_base::badbit);
        EXPECT_THROW(stream << document, std::ios_base::failure) << room;
        EXPECT_EQ(whole.str().substr(0, room), buffer.text);
    }
}

TEST(XmlStreamer, AGuardThatCannotEndItsElementLetsAFailureThatIsOnItsWayPass)
{
    auto const write = [](std::ostream &stream) {
        XmlStreamer streamer(stream, false, LiString());
        XmlStreamer::ElementGuard a(streamer, "a");
        a.addAttribute("x", "y");
        XmlStreamer::ElementGuard b(a, "b");
        b.addTextData("z");
    };
    std::ostringstream whole;
    write(whole);
    EXPECT_EQ("<a x=\"y\" >\n<b >\nz</b>\n</a>\n", whole.str());
    for (std::size_t room = 0; room < whole.str().size(); ++room) {
        FullBuffer buffer(room);
        std::ostream stream(&buffer);
        stream.exceptions(std::ios_base::badbit);
        EXPECT_THROW(write(stream), std::ios_base::failure) << room;
        EXPECT_EQ(whole.str().substr(0, room), buffer.text);
    }
}

// XmlWriter

/// An element with an attribute and children.
class Item : public XmlTopElement
{
public:
    explicit Item(char const *tag) : _tag(tag) {}
    Item(char const *tag, Item &first, Item &second) : _tag(tag), _children{&first, &second} {}

    XmlBaseElement *createElement(XmlReader &, LiString const &, XmlAttributeList const &) override
    {
        return nullptr;
    }
    LiString getTagName() const override { return _tag; }
    void performWrite(XmlWriter &writer) override
    {
        if (fails)
            throw 7;
        writer.writeAttribute("name", _tag);
        for (Item * const child : _children)
            writer.writeElement(*child);
    }
    void performRead(XmlAttributeList const &) override {}
    void performReadEnd() override {}

    bool fails = false;

private:
    LiString _tag;
    std::vector<Item *> _children;
};

TEST(XmlWriter, AnElementWithoutChildrenHasAStartAndAnEndTag)
{
    XmlWriter writer;
    writer.startElement("a");
    EXPECT_EQ("\n<a", bytesOf(writer.getXml()));
    writer.endElement("a");
    EXPECT_EQ("\n<a>\n</a>\n", bytesOf(writer.getXml()));
}

TEST(XmlWriter, ElementsAreIndented)
{
    Item c("c"), d("d"), b("b", c, d), e("e");
    Item a("a", b, e);
    XmlWriter writer;
    std::string const expected = "\n<a\n    name=\"a\">\n"
                                 "\n    <b\n        name=\"b\">\n"
                                 "\n        <c\n            name=\"c\">\n        </c>\n"
                                 "\n        <d\n            name=\"d\">\n        </d>\n"
                                 "    </b>\n"
                                 "\n    <e\n        name=\"e\">\n    </e>\n"
                                 "</a>\n";
    EXPECT_EQ(expected, bytesOf(writer.toXml(a)));
    EXPECT_EQ("", bytesOf(writer.getXml())) << "empty afterwards";
    EXPECT_EQ(expected, bytesOf(writer.toXml(a))) << "and like new";
    EXPECT_EQ("<?xml version='1.0'?>\n\n<!DOCTYPE a>\n" + expected,
              bytesOf(writer.toXmlDocument(a)));
    EXPECT_EQ("<?xml version='1.0'?>\n\n<!DOCTYPE type>\n" + expected,
              bytesOf(writer.toXmlDocument(a, "type")));
    EXPECT_EQ("", bytesOf(writer.getXml()));
}

TEST(XmlWriter, ATopElementMayNameItsDocumentType)
{
    struct Named : Item
    {
        Named() : Item("a") {}
        LiString getDocumentTypeName() const override { return "show"; }
    } named;
    EXPECT_EQ("<?xml version='1.0'?>\n\n<!DOCTYPE show>\n\n<a\n    name=\"a\">\n</a>\n",
              bytesOf(XmlWriter().toXmlDocument(named)));
}

TEST(XmlWriter, ADocumentIsReadAgain)
{
    Item b("b"), c("c"), a("a", b, c);
    EXPECT_EQ("declaration[1.0] type[a] begin[a] name=[a] tagEnd begin[b] name=[b] tagEnd close[b] "
              "begin[c] name=[c] tagEnd close[c] close[a] ",
              toldOf(bytesOf(XmlWriter().toXmlDocument(a))));
}

TEST(XmlWriter, WritesNumbersOfAllKinds)
{
    XmlWriter writer;
    writer.startElement("a");
    writer.writeAttribute("i", -2147483647);
    writer.writeAttribute("s", static_cast<short>(-7));
    writer.writeAttribute("c", static_cast<signed char>(-65));
    writer.writeAttribute("uc", static_cast<unsigned char>(65));
    writer.writeAttribute("u", 4294967295u);
    writer.writeAttribute("us", static_cast<unsigned short>(65535));
    writer.writeAttribute("empty", LiString());
    EXPECT_EQ("\n<a\n    i=\"-2147483647\"\n    s=\"-7\"\n    c=\"-65\"\n    uc=\"65\"\n    "
              "u=\"4294967295\"\n    us=\"65535\"\n    empty=\"\"",
              bytesOf(writer.getXml()));
}

TEST(XmlWriter, WritesNumbersWhateverLocaleTheProgramHas)
{
    GroupingLocale const locale;
    XmlWriter writer;
    writer.startElement("a");
    writer.writeAttribute("i", 1234567);
    writer.writeAttribute("us", static_cast<unsigned short>(65535));
    EXPECT_EQ("\n<a\n    i=\"1234567\"\n    us=\"65535\"", bytesOf(writer.getXml()));
}

TEST(XmlWriter, AValueWithAQuoteGivesATextThatIsRejected)
{
    XmlWriter writer;
    writer.startElement("a");
    writer.writeAttribute("b", "x\"y");
    writer.endElement("a");
    EXPECT_EQ("\n<a\n    b=\"x\"y\">\n</a>\n", bytesOf(writer.getXml()));
    EXPECT_EQ("begin[a] b=[x] Syntax error.", toldOf(bytesOf(writer.getXml())));
}

TEST(XmlWriter, StartsAfreshWhenReset)
{
    XmlWriter writer;
    EXPECT_EQ("", bytesOf(writer.getXml()));
    writer.startElement("a");
    writer.startElement("b");
    writer.reset();
    EXPECT_EQ("", bytesOf(writer.getXml()));
    writer.startElement("c");
    writer.endElement("c");
    EXPECT_EQ("\n<c>\n</c>\n", bytesOf(writer.getXml()));
}

TEST(XmlWriter, ServesAgainAfterAnElementThatThrew)
{
    Item b("b"), c("c"), a("a", b, c);
    c.fails = true;
    XmlWriter writer;
    EXPECT_THROW(writer.toXml(a), int);
    EXPECT_EQ("\n<b\n    name=\"b\">\n</b>\n", bytesOf(writer.toXml(b)));
    EXPECT_THROW(writer.toXmlDocument(a), int);
    EXPECT_EQ("<?xml version='1.0'?>\n\n<!DOCTYPE b>\n\n<b\n    name=\"b\">\n</b>\n",
              bytesOf(writer.toXmlDocument(b)));
}

TEST(XmlWriter, AnEndWithoutAStartThrows)
{
    XmlWriter writer;
    EXPECT_THROW(writer.endElement("a"), LiStringEx::ExOutOfBounds);
    writer.startElement("a");
    writer.endElement("a");
    EXPECT_THROW(writer.endElement("a"), LiStringEx::ExOutOfBounds);
    EXPECT_EQ("\n<a>\n</a>\n", bytesOf(writer.getXml()));
}

} // namespace
} // namespace ZvTest
