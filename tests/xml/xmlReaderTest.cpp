#include "testing/asleep.h"
#include "xmlTesting.h"

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace ZvTest {
namespace {

// XmlParserProtocolSax

class Sax : public XmlParserProtocolSax
{
public:
    void startElement(LiString const &name, XmlAttributeList const &attributes) override
    {
        told += "start[" + bytesOf(name) + "] ";
        for (int i = 0; i < attributes.getLength(); ++i)
            told += bytesOf(attributes.getName(i)) + "=[" + bytesOf(attributes.getValue(i)) + "] ";
    }
    void endElement(LiString const &name) override { told += "end[" + bytesOf(name) + "] "; }
    using XmlParserProtocolSax::reset;

    std::string told;
};

std::string saxOf(std::string const &text)
{
    Sax sax;
    std::istringstream input(text);
    XmlParser::parse(sax, input);
    return sax.told;
}

TEST(XmlParserProtocolSax, EachElementStartsAndEnds)
{
    EXPECT_EQ(saxOf("<a/>"), "start[a] end[a] ");
    EXPECT_EQ(saxOf("<a></a>"), "start[a] end[a] ");
    EXPECT_EQ(saxOf("<a x='1' y='2'/>"), "start[a] x=[1] y=[2] end[a] ");
    EXPECT_EQ(saxOf("<a x='1'></a>"), "start[a] x=[1] end[a] ");
    EXPECT_EQ(saxOf("<a x='1' x='2'/>"), "start[a] x=[1] x=[2] end[a] ") << "both of a name";
}

TEST(XmlParserProtocolSax, EachElementHasItsOwnAttributes)
{
    EXPECT_EQ(saxOf("<a x='1'><b y='2'><c z='3'/></b><d/><e w='4'></e></a>"),
              "start[a] x=[1] start[b] y=[2] start[c] z=[3] end[c] end[b] start[d] end[d] start[e] "
              "w=[4] end[e] end[a] ");
}

TEST(XmlParserProtocolSax, ElementsOfOneNameNest)
{
    EXPECT_EQ(saxOf("<a x='1'><a x='2'><a/></a></a>"),
              "start[a] x=[1] start[a] x=[2] start[a] end[a] end[a] end[a] ");
    EXPECT_EQ(saxOf("<a><a></a></a>"), "start[a] start[a] end[a] end[a] ");
}

TEST(XmlParserProtocolSax, DeclarationTypeAndTextsAreNotReported)
{
    EXPECT_EQ(saxOf("<?xml version='7'?><!DOCTYPE t><a>x&amp;<![CDATA[y]]></a>"),
              "start[a] end[a] ");
}

TEST(XmlParserProtocolSax, ClosingTagsAreNotCompared)
{
    EXPECT_EQ(saxOf("<a x='1'></b>"), "end[b] ");
    EXPECT_EQ(saxOf("<a><b/></c>"), "start[a] start[b] end[b] end[c] ");
}

TEST(XmlParserProtocolSax, AnEmptyEndWithoutAnElementIsASyntaxError)
{
    Sax sax;
    EXPECT_EQ(reasonOf([&] { sax.notifyEmptyElementEnd(); }), "Syntax error.");
}

TEST(XmlParserProtocolSax, ForgetsAFailedParse)
{
    Sax sax;
    std::istringstream broken("<a x='1'&");
    EXPECT_THROW(XmlParser::parse(sax, broken), XmlEx::ExLexicalError);
    sax.reset();
    std::istringstream whole("<b/>");
    XmlParser::parse(sax, whole);
    EXPECT_EQ(sax.told, "start[b] end[b] ");
}

// XmlReader

/// An element that writes down what happens to it, and owns its children.
class Item : public XmlTopElement
{
public:
    Item(LiString const &tag, std::string &log) : _tag(tag), _log(log) { ++living; }
    ~Item() noexcept(false) override { --living; }

    XmlBaseElement *createElement(XmlReader &reader, LiString const &name,
                                  XmlAttributeList const &attributes) override
    {
        _log += bytesOf(_tag) + " makes " + bytesOf(name) + "/" +
                std::to_string(attributes.getLength()) + "; ";
        if (name == "none")
            return nullptr;
        if (name == "refused")
            refuse();
        if (auto const act = std::exchange(whenItMakes, nullptr))
            act();
        if (name == "inner") {
            ObjPtr<XmlBaseElement> const inner(reader.buildElement("<r><s x='1'/></r>"));
            EXPECT_EQ(bytesOf(inner->getTagName()), "r");
        }
        _children.push_back(std::make_unique<Item>(name, _log));
        return _children.back().get();
    }
    LiString getTagName() const override { return _tag; }
    void performWrite(XmlWriter &writer) override
    {
        for (int i = 0; i < _attributes.getLength(); ++i)
            writer.writeAttribute(_attributes.getName(i), _attributes.getValue(i));
        for (auto const &child : _children)
            writer.writeElement(*child);
    }
    void performRead(XmlAttributeList const &attributes) override
    {
        _attributes = attributes;
        _log += bytesOf(_tag) + " reads " + std::to_string(attributes.getLength()) + "; ";
    }
    void performReadEnd() override { _log += bytesOf(_tag) + " ends; "; }

    static inline std::atomic<int> living = 0; // several threads build
    static inline std::function<void()> whenItMakes;

private:
    [[noreturn]] static void refuse()
    {
        throw XmlEx::ExSaxParsingError(__FILE__, __LINE__, "refused");
    }

    LiString _tag;
    std::string &_log;
    XmlAttributeList _attributes;
    std::vector<std::unique_ptr<Item>> _children;
};

class RootBuilder : public XmlBaseElementBuilder
{
public:
    XmlBaseElement *createElement(XmlReader &, LiString const &name,
                                  XmlAttributeList const &attributes) override
    {
        log +=
            "builder makes " + bytesOf(name) + "/" + std::to_string(attributes.getLength()) + "; ";
        return name == "none" ? nullptr : new Item(name, log);
    }
    std::string log;
};

struct XmlReaderTest : testing::Test
{
    ~XmlReaderTest() override { EXPECT_EQ(Item::living, 0); }

    // Their destructors may throw, that of a test may not.
    std::unique_ptr<RootBuilder> ownBuilder = std::make_unique<RootBuilder>();
    std::unique_ptr<XmlReader> ownReader = std::make_unique<XmlReader>(*ownBuilder);
    RootBuilder &builder = *ownBuilder;
    XmlReader &reader = *ownReader;
};

TEST_F(XmlReaderTest, EachElementMakesItsChildren)
{
    EXPECT_EQ(&builder, &reader.getElementBuilder());
    ObjPtr<XmlBaseElement> const root(reader.buildElement(
        "<?xml version='1.0'?><!DOCTYPE t><a x='1'>t<b y='2' z='3'><c/></b><d/></a>"));
    EXPECT_EQ(
        builder.log,
        "builder makes a/1; a reads 1; a makes b/2; b reads 2; b makes c/0; c reads 0; c ends; "
        "b ends; a makes d/0; d reads 0; d ends; a ends; ");
    EXPECT_EQ(bytesOf(root->getTagName()), "a");
    EXPECT_EQ(Item::living, 4);
}

TEST_F(XmlReaderTest, ReadsStreamsAndFiles)
{
    std::istringstream input("<a/>");
    EXPECT_FALSE(reader.buildElement(input).isNull());
    std::string const name =
        (std::filesystem::temp_directory_path() / ("reader" + std::to_string(::getpid()) + ".xml"))
            .string();
    std::ofstream(name) << "<fromFile/>";
    EXPECT_EQ(
        bytesOf(ObjPtr<XmlBaseElement>(reader.buildElementFromFile(name.c_str()))->getTagName()),
        "fromFile");
    std::remove(name.c_str());
    EXPECT_EQ(reasonOf([&] { auto const a = reader.buildElementFromFile(name.c_str()); }),
              "Syntax error.")
        << "a file that is not there is read as an empty one";
}

TEST_F(XmlReaderTest, AFailureDestroysWhatWasBuilt)
{
    EXPECT_THROW(auto const a = reader.buildElement("<a><b><c>"), XmlEx::ExSyntaxError);
    EXPECT_EQ(Item::living, 0);
    EXPECT_THROW(auto const a = reader.buildElement("<a><refused/></a>"), XmlEx::ExSaxParsingError);
    EXPECT_EQ(Item::living, 0);
    builder.log.clear();
    EXPECT_FALSE(reader.buildElement("<d/>").isNull()) << "nothing is left behind";
    EXPECT_EQ(builder.log, "builder makes d/0; d reads 0; d ends; ");
}

TEST_F(XmlReaderTest, ANullElementThrows)
{
    EXPECT_THROW(auto const a = reader.buildElement("<none/>"), RCEx::ExNullPtr);
    EXPECT_THROW(auto const a = reader.buildElement("<a><none/></a>"), RCEx::ExNullPtr);
}

TEST_F(XmlReaderTest, AnEndWithoutAStartIsASyntaxError)
{
    EXPECT_EQ(reasonOf([&] { auto const a = reader.buildElement("<a></b>"); }), "Syntax error.");
    EXPECT_EQ(reasonOf([&] { reader.endElement("a"); }), "Syntax error.");
    EXPECT_EQ(reasonOf([&] { auto const a = reader.buildElement("<a><b></c></a>"); }),
              "Syntax error.");
}

TEST_F(XmlReaderTest, TheResultIsTheLastRoot)
{
    // The first closing tag has another name, and ends the root; what comes then is a root again.
    ObjPtr<XmlBaseElement> const root(reader.buildElement("<a><b></c><d/></a>"));
    EXPECT_EQ(builder.log,
              "builder makes a/0; a reads 0; a ends; builder makes b/0; b reads 0; b makes d/0; d "
              "reads 0; d ends; b ends; ");
    EXPECT_EQ(bytesOf(root->getTagName()), "b");
    EXPECT_EQ(Item::living, 2);
}

TEST_F(XmlReaderTest, AnElementMayBuildFromAnotherTextWithTheSameReader)
{
    ObjPtr<XmlBaseElement> const root(reader.buildElement("<a><inner y='2'><b/></inner></a>"));
    EXPECT_EQ(
        builder.log,
        "builder makes a/0; a reads 0; a makes inner/1; builder makes r/0; r reads 0; r makes "
        "s/1; s reads 1; s ends; r ends; inner reads 1; inner makes b/0; b reads 0; b ends; "
        "inner ends; a ends; ");
}

TEST_F(XmlReaderTest, ServesSeveralThreads)
{
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([this] {
            for (int turn = 0; turn < 20; ++turn)
                EXPECT_FALSE(reader.buildElement("<a x='1'><b><c/></b></a>").isNull());
        });
}

TEST_F(XmlReaderTest, AThreadWaitsUntilTheOtherHasBuilt)
{
    bool hasWaited = false;
    std::thread other;
    Item::whenItMakes = [&] {
        std::atomic<long> number = 0;
        std::atomic<bool> hasBuilt = false;
        other = std::thread([&, this] {
            number = threadNumber();
            ObjPtr<XmlBaseElement> const built(reader.buildElement("<other/>"));
            hasBuilt = true;
        });
        while (!hasBuilt && !hasWaited) {
            std::this_thread::yield();
            hasWaited = number != 0 && isAsleep(number) && !hasBuilt;
        }
    };
    ObjPtr<XmlBaseElement> const root(reader.buildElement("<a><b/></a>"));
    other.join();
    EXPECT_TRUE(hasWaited);
    EXPECT_EQ(builder.log, "builder makes a/0; a reads 0; a makes b/0; b reads 0; b ends; a ends; "
                           "builder makes other/0; other reads 0; other ends; ");
}

TEST_F(XmlReaderTest, WrittenTextCanBeRead)
{
    XmlWriter writer;
    ObjPtr<XmlBaseElement> const root(reader.buildElement("<a x='1'><b y='2' z='3'/></a>"));
    LiString const text(writer.toXmlDocument(dynamic_cast<XmlTopElement &>(*root)));
    ObjPtr<XmlBaseElement> const again(reader.buildElement(text));
    EXPECT_EQ(bytesOf(text), bytesOf(writer.toXmlDocument(dynamic_cast<XmlTopElement &>(*again))));
}

TEST_F(XmlReaderTest, TheDeepestNestingFitsOnASmallStack)
{
    struct Flat : XmlBaseElement
    {
        XmlBaseElement *createElement(XmlReader &, LiString const &,
                                      XmlAttributeList const &) override
        {
            ++made;
            return this;
        }
        LiString getTagName() const override { return "a"; }
        void performWrite(XmlWriter &) override {}
        void performRead(XmlAttributeList const &) override {}
        void performReadEnd() override { ++ended; }
        int made = 1;
        int ended = 0;
    };
    struct FlatBuilder : XmlBaseElementBuilder
    {
        XmlBaseElement *createElement(XmlReader &, LiString const &,
                                      XmlAttributeList const &) override
        {
            return new Flat;
        }
    };
    runOnSmallStack([] {
        FlatBuilder flatBuilder;
        XmlReader flatReader(flatBuilder);
        ObjPtr<XmlBaseElement> const root(flatReader.buildElement(nested(2000).c_str()));
        EXPECT_EQ(dynamic_cast<Flat &>(*root).made, 2000);
        EXPECT_EQ(dynamic_cast<Flat &>(*root).ended, 2000);
    });
}

} // namespace
} // namespace ZvTest
