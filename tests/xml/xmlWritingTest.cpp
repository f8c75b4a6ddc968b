#include "testing/capturedLog.h"
#include "testing/groupingLocale.h"
#include "xmlTesting.h"
#include "zvbase/lgLog.h"

#include <iomanip>
#include <memory>
#include <streambuf>
#include <utility>

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
    EXPECT_EQ(written(), "<?xml version=\"1.0\"?>\n<!DOCTYPE show>\n");
    XmlStreamer const declaration(stream, true, LiString());
    EXPECT_EQ(written(), "<?xml version=\"1.0\"?>\n");
    XmlStreamer const type(stream, false, "show");
    EXPECT_EQ(written(), "<!DOCTYPE show>\n");
    XmlStreamer const nothing(stream, false, LiString());
    EXPECT_EQ(written(), "");
}

TEST_F(XmlStreamerTest, AnElementWithoutContentIsEmpty)
{
    {
        Guard const a(streamer, "a");
        EXPECT_EQ(written(), "<a ");
        EXPECT_FALSE(a.hasContent());
    }
    EXPECT_EQ(written(), "/>\n");
}

TEST_F(XmlStreamerTest, AChildEndsTheStartTagOfItsParent)
{
    {
        Guard a(streamer, "a");
        written();
        {
            Guard const b(a, "b");
            EXPECT_EQ(written(), ">\n<b ");
            EXPECT_TRUE(a.hasContent());
        }
        EXPECT_EQ(written(), "/>\n");
        {
            Guard c(a, "c");
            Guard const d(c, "d");
            EXPECT_EQ(written(), "<c >\n<d ");
        }
        EXPECT_EQ(written(), "/>\n</c>\n");
    }
    EXPECT_EQ(written(), "</a>\n");
}

TEST_F(XmlStreamerTest, AttributesAreEscaped)
{
    Guard a(streamer, "a");
    written();
    a.addAttribute("a", "x<y");
    EXPECT_EQ(written(), "a=\"x&lt;y\" ");
    a.addAttribute("b", "\"&'<>\xFF\n]");
    EXPECT_EQ(written(), "b=\"&quot;&amp;&apos;&lt;&gt;\xFF\n]\" ");
    a.addAttribute("c", "");
    EXPECT_EQ(written(), "c=\"\" ");
    a.addAttribute("d", static_cast<char const *>(nullptr));
    EXPECT_EQ(written(), "d=\"\" ");
    std::string const value(1000, 'x');
    a.addAttribute("e", (value + "&" + value).c_str());
    EXPECT_EQ(written(), "e=\"" + value + "&amp;" + value + "\" ");
    for (std::size_t const length : {250, 251, 252, 253, 254, 255, 256, 257}) {
        std::string const some(length, 'y');
        a.addAttribute("f", (some + "<").c_str());
        EXPECT_EQ(written(), "f=\"" + some + "&lt;\" ");
    }
}

/// Reads a document and returns what is written of it.
std::string writtenAgain(std::string const &text)
{
    std::ostringstream stream;
    stream << XmlDocument(LiString(text.data(), text.size()));
    return stream.str();
}

TEST(XmlDocument, ASpecialByteIsEscapedAtAnyPlaceOfAValueOfAnyLength)
{
    std::pair<char, char const *> const references[] = {
        {'"', "&quot;"}, {'&', "&amp;"}, {'\'', "&apos;"}, {'<', "&lt;"}, {'>', "&gt;"}};
    for (std::size_t length = 1; length != 40; ++length)
        for (std::size_t place = 0; place != length; ++place)
            for (auto const &[special, reference] : references) {
                std::string const before(place, '%');
                std::string const after(length - place - 1, '?');
                ObjPtr<XmlElement> root(new XmlElement("a"));
                root->setAttribute("b", (before + special + after).c_str());
                XmlDocument document(false);
                document.setRoot(root);
                std::ostringstream stream;
                stream << document;
                ASSERT_EQ(stream.str(),
                          "<!DOCTYPE a>\n<a b=\"" + before + reference + after + "\" />\n");
                XmlDocument const again(stream.str().c_str());
                ASSERT_EQ(bytesOf(again.getRoot()->getAttribute("b")), before + special + after);
                ASSERT_EQ(writtenAgain(stream.str()), stream.str());
            }
}

/// Returns the text of a document with names and values of many lengths, as it is written.
std::string makeDocumentOfManyLengths()
{
    std::string text = "<!DOCTYPE element>\n<element ";
    for (std::size_t length = 0; length != 70; ++length)
        for (std::size_t nameLength : {1, 2, 7, 8, 15, 16, 17, 31, 32, 33, 40}) {
            std::string name = "n" + std::to_string(length);
            name.resize(std::max(name.size(), nameLength), 'x');
            std::string const value(length, static_cast<char>('a' + length % 26));
            text += name + std::to_string(nameLength) + "=\"" + value + "\" ";
        }
    return text + "/>\n";
}

TEST(XmlDocument, NamesAndValuesOfAllLengthsAreWrittenAsTheyWereRead)
{
    std::string const text = makeDocumentOfManyLengths();
    EXPECT_EQ(writtenAgain(text), text);
}

TEST(XmlDocument, NamesAndValuesThatABuilderCopiesAreWrittenAsTheyWereRead)
{
    class Copying : public XmlDocumentBuilder
    {
        void notifyTextData(LiString const &) override {} // so that strings are made of all texts
    };
    std::string const text = makeDocumentOfManyLengths();
    std::istringstream stream(text);
    Copying builder;
    std::ostringstream written;
    written << XmlDocument(stream, builder);
    EXPECT_EQ(written.str(), text);
}

TEST(XmlDocument, NamesOfElementsOfAllLengthsAreWrittenAsTheyWereRead)
{
    std::string name;
    std::string text;
    for (int i = 0; i != 70; ++i) {
        name += 'e';
        text = "<" + name + " " + (text.empty() ? "/>\n" : ">\n" + text + "</" + name + ">\n");
    }
    text = "<!DOCTYPE " + name + ">\n" + text;
    EXPECT_EQ(writtenAgain(text), text);
}

TEST_F(XmlStreamerTest, NumbersHaveTheFormatOfTheStream)
{
    Guard a(streamer, "a");
    written();
    a.addAttribute("i", -17);
    a.addAttribute("d", 0.5);
    EXPECT_EQ(written(), "i=\"-17\" d=\"0.5\" ");
    stream << std::hex << std::setprecision(3);
    a.addAttribute("i", 255);
    a.addAttribute("d", 2.0 / 3);
    EXPECT_EQ(written(), "i=\"ff\" d=\"0.667\" ");
}

TEST_F(XmlStreamerTest, NumbersAreWrittenIndependentlyOfTheStreamsLocale)
{
    GroupingLocale const locale;
    stream.imbue(std::locale());
    Guard a(streamer, "a");
    written();
    stream.width(9);
    stream.fill('0');
    a.addAttribute("i", 1234567);
    a.addAttribute("d", 12345.5);
    EXPECT_EQ(written(), "i=\"001234567\" d=\"12345.5\" ");
    stream << 1234567;
    EXPECT_EQ(written(), "1.234.567") << "the stream is as it was";
}

TEST_F(XmlStreamerTest, AnAttributeBehindContentIsASyntaxError)
{
    Guard a(streamer, "a");
    a.addTextData("");
    written();
    EXPECT_EQ(reasonOf<XmlEx::ExSyntaxError>([&] { a.addAttribute("b", "c"); }), "Syntax error.");
    EXPECT_EQ(reasonOf<XmlEx::ExSyntaxError>([&] { a.addAttribute("b", 1); }), "Syntax error.");
    EXPECT_EQ(reasonOf<XmlEx::ExSyntaxError>([&] { a.addAttribute("b", 1.0); }), "Syntax error.");
    EXPECT_EQ(written(), "");
}

TEST_F(XmlStreamerTest, ADocumentHasOneRoot)
{
    {
        Guard const a(streamer, "a");
    }
    written();
    EXPECT_TRUE(streamer.getDocument().hasContent());
    EXPECT_EQ(reasonOf<XmlEx::ExSyntaxError>([&] { Guard const b(streamer, "b"); }),
              "Syntax error.");
    EXPECT_EQ(written(), "");
    EXPECT_EQ(&stream, &streamer.getDocument().getOutput());
}

TEST_F(XmlStreamerTest, TextIsWrittenUnchanged)
{
    {
        Guard a(streamer, "a");
        a.addTextData("x<&y");
        a.addTextData("z");
        a.addTextData(nullptr);
    }
    EXPECT_EQ(written(), "<a >\nx<&yz</a>\n");
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
    EXPECT_EQ(text, "<a >\n<![CDATA[x<y]]><![CDATA[]]></a>\n");
    EXPECT_EQ(toldOf(text), "begin[a] tagEnd cdata[x<y] cdata[] close[a] ");
    EXPECT_EQ(toldOf("<a >\n<![CDATA[x<y]]</a>\n"), "begin[a] tagEnd Lexical error.")
        << "the section must have its end";
}

TEST_F(XmlStreamerTest, AClientsOwnGuardMayRepresentANode)
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
    EXPECT_EQ(buffer.text, "<!DOCTYPE ");
    EXPECT_TRUE(stream.bad());
}

TEST(XmlStreamer, ThrowsWhatTheStreamThrowsAtAnyCall)
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
    EXPECT_EQ(whole.str(), "<a x=\"y\" >\n<b >\nz</b>\n</a>\n");
    for (std::size_t room = 0; room < whole.str().size(); ++room) {
        FullBuffer buffer(room);
        std::ostream stream(&buffer);
        stream.exceptions(std::ios_base::badbit);
        EXPECT_THROW(write(stream), std::ios_base::failure) << room;
        EXPECT_EQ(whole.str().substr(0, room), buffer.text);
    }
}

/// Opens an element in a stream that has no room for its end.
class Unclosable
{
public:
    Unclosable() { _stream.exceptions(std::ios_base::badbit); }

private:
    FullBuffer _buffer{3};
    std::ostream _stream{&_buffer};
    XmlStreamer _streamer{_stream, false, LiString()};
    XmlStreamer::ElementGuard _element{_streamer, "a"};
};

TEST(XmlStreamer, AGuardTracesAFailureThatItCannotThrow)
{
    LgLog::flush();
    CapturedLog const log;
    EXPECT_THROW({ Unclosable const element; }, std::ios_base::failure);
    LgLog::flush();
    EXPECT_TRUE(log.getLines().empty());
    EXPECT_THROW(
        {
            Unclosable const element;
            throw 7;
        },
        int);
    LgLog::flush();
    ASSERT_EQ(log.getLines().size(), 1U);
    EXPECT_NE(log.getLines()[0].find("xmlStreamer.cpp"), std::string::npos);
    EXPECT_TRUE(log.getTexts()[0].starts_with("Exception: ")) << log.getTexts()[0];
}

TEST(XmlStreamer, AGuardThrowsInsideOfADestructorThatUnwindingRuns)
{
    static bool hasThrown;
    struct Report
    {
        ~Report()
        {
            try {
                Unclosable const element;
            } catch (std::ios_base::failure const &) {
                hasThrown = true;
            }
        }
    };
    hasThrown = false;
    EXPECT_THROW(
        {
            Report const report;
            throw 7;
        },
        int);
    EXPECT_TRUE(hasThrown);
}

// XmlWriter

/// An element with an attribute and children.
class ListItem : public XmlTopElement
{
public:
    explicit ListItem(char const *tag) : _tag(tag) {}
    ListItem(char const *tag, ListItem &first, ListItem &second)
        : _tag(tag), _children{&first, &second}
    {}

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
        for (ListItem * const child : _children)
            writer.writeElement(*child);
    }
    void performRead(XmlAttributeList const &) override {}
    void performReadEnd() override {}

    bool fails = false;

private:
    LiString _tag;
    std::vector<ListItem *> _children;
};

TEST(XmlWriter, AnElementWithoutChildrenHasAStartAndAnEndTag)
{
    XmlWriter writer;
    writer.startElement("a");
    EXPECT_EQ(bytesOf(writer.getXml()), "\n<a");
    writer.endElement("a");
    EXPECT_EQ(bytesOf(writer.getXml()), "\n<a>\n</a>\n");
}

TEST(XmlWriter, ElementsAreIndented)
{
    ListItem c("c"), d("d"), b("b", c, d), e("e");
    ListItem a("a", b, e);
    XmlWriter writer;
    std::string const expected = "\n<a\n    name=\"a\">\n"
                                 "\n    <b\n        name=\"b\">\n"
                                 "\n        <c\n            name=\"c\">\n        </c>\n"
                                 "\n        <d\n            name=\"d\">\n        </d>\n"
                                 "    </b>\n"
                                 "\n    <e\n        name=\"e\">\n    </e>\n"
                                 "</a>\n";
    EXPECT_EQ(bytesOf(writer.toXml(a)), expected);
    EXPECT_EQ(bytesOf(writer.getXml()), "") << "empty afterwards";
    EXPECT_EQ(bytesOf(writer.toXml(a)), expected) << "and like new";
    EXPECT_EQ(bytesOf(writer.toXmlDocument(a)),
              "<?xml version='1.0'?>\n\n<!DOCTYPE a>\n" + expected);
    EXPECT_EQ(bytesOf(writer.toXmlDocument(a, "type")),
              "<?xml version='1.0'?>\n\n<!DOCTYPE type>\n" + expected);
    EXPECT_EQ(bytesOf(writer.getXml()), "");
}

TEST(XmlWriter, ATopElementMayNameItsDocumentType)
{
    struct Named : ListItem
    {
        Named() : ListItem("a") {}
        LiString getDocumentTypeName() const override { return "show"; }
    } named;
    EXPECT_EQ(bytesOf(XmlWriter().toXmlDocument(named)),
              "<?xml version='1.0'?>\n\n<!DOCTYPE show>\n\n<a\n    name=\"a\">\n</a>\n");
}

TEST(XmlWriter, ADocumentIsReadAgain)
{
    ListItem b("b"), c("c"), a("a", b, c);
    EXPECT_EQ(toldOf(bytesOf(XmlWriter().toXmlDocument(a))),
              "declaration[1.0] type[a] begin[a] name=[a] tagEnd begin[b] name=[b] tagEnd close[b] "
              "begin[c] name=[c] tagEnd close[c] close[a] ");
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
    EXPECT_EQ(bytesOf(writer.getXml()),
              "\n<a\n    i=\"-2147483647\"\n    s=\"-7\"\n    c=\"-65\"\n    uc=\"65\"\n    "
              "u=\"4294967295\"\n    us=\"65535\"\n    empty=\"\"");
}

TEST(XmlWriter, WritesNumbersIndependentlyOfTheLocale)
{
    GroupingLocale const locale;
    XmlWriter writer;
    writer.startElement("a");
    writer.writeAttribute("i", 1234567);
    writer.writeAttribute("us", static_cast<unsigned short>(65535));
    EXPECT_EQ(bytesOf(writer.getXml()), "\n<a\n    i=\"1234567\"\n    us=\"65535\"");
}

TEST(XmlWriter, AValueWithAQuoteGivesATextThatIsRejected)
{
    XmlWriter writer;
    writer.startElement("a");
    writer.writeAttribute("b", "x\"y");
    writer.endElement("a");
    EXPECT_EQ(bytesOf(writer.getXml()), "\n<a\n    b=\"x\"y\">\n</a>\n");
    EXPECT_EQ(toldOf(bytesOf(writer.getXml())), "begin[a] b=[x] Syntax error.");
}

TEST(XmlWriter, StartsAfreshWhenReset)
{
    XmlWriter writer;
    EXPECT_EQ(bytesOf(writer.getXml()), "");
    writer.startElement("a");
    writer.startElement("b");
    writer.reset();
    EXPECT_EQ(bytesOf(writer.getXml()), "");
    writer.startElement("c");
    writer.endElement("c");
    EXPECT_EQ(bytesOf(writer.getXml()), "\n<c>\n</c>\n");
}

TEST(XmlWriter, ServesAgainAfterAnElementThatThrew)
{
    ListItem b("b"), c("c"), a("a", b, c);
    c.fails = true;
    XmlWriter writer;
    EXPECT_THROW(writer.toXml(a), int);
    EXPECT_EQ(bytesOf(writer.toXml(b)), "\n<b\n    name=\"b\">\n</b>\n");
    EXPECT_THROW(writer.toXmlDocument(a), int);
    EXPECT_EQ(bytesOf(writer.toXmlDocument(b)),
              "<?xml version='1.0'?>\n\n<!DOCTYPE b>\n\n<b\n    name=\"b\">\n</b>\n");
}

TEST(XmlWriter, AnEndWithoutAStartThrows)
{
    XmlWriter writer;
    EXPECT_THROW(writer.endElement("a"), LiStringEx::ExOutOfBounds);
    writer.startElement("a");
    writer.endElement("a");
    EXPECT_THROW(writer.endElement("a"), LiStringEx::ExOutOfBounds);
    EXPECT_EQ(bytesOf(writer.getXml()), "\n<a>\n</a>\n");
}

} // namespace
} // namespace ZvTest
