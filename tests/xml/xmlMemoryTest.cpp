// XML without memory. Each allocation of the calling thread fails in its turn.

#include "resmgt/xml/xmlNode.h"
#include "testing/allocations.h"
#include "testing/childProcess.h"
#include "xmlTesting.h"

#include <cstdio>
#include <cstdlib>

/// Reads a text while only a given number of buffers can be allocated.
int zvChildMain(int argc, char **argv);

int zvChildMain(int argc, char **argv)
{
    if (argc != 2)
        return 3;
    std::istringstream input(
        "<a>" + std::string(static_cast<std::size_t>(std::atoi(argv[1])), 'x') + "</a>");
    ZvTest::Recorder recorder;
    ZvTest::FailingAllocation const failing(std::atoi(argv[0]),
                                            ZvTest::Allocations::ANSWERING_NULL);
    Zv::XmlParser::parse(recorder, input);
    return 0;
}

namespace ZvTest {
namespace {

/// Lets each allocation that can throw fail. Without the parser's buffers the process would end.
template <class Function>
int failInTurn(Function const &function)
{
    return failEachAllocation(
        function, [] {}, Allocations::THROWING);
}

char const text[] =
    "<?xml version='1.0'?><!DOCTYPE t><a x='1' y='a value that is long &amp; has a reference in "
    "it'>"
    "text<b><c z='2'>more text, so that it is no short one</c></b><![CDATA[raw]]></a>";

TEST(XmlMemory, ATextFreesAllItsMemory)
{
    LiString const empty;
    ReleaseCount const releases;
    {
        XmlText kept;
        kept.assign("long");
        EXPECT_EQ(releases.get(), 0u);
        kept.assign("longer");
        EXPECT_EQ(releases.get(), 1u);
    }
    EXPECT_EQ(releases.get(), 2u);
}

TEST(XmlMemory, ADocumentThatFindsNoneIsNotReadAndLeavesNothingBehind)
{
    EXPECT_GT(failInTurn([] { XmlDocument const document(text); }), 5);
}

TEST(XmlMemory, ABuilderThatFindsNoneServesAgain)
{
    XmlDocumentBuilder builder;
    EXPECT_GT(failInTurn([&] {
                  std::istringstream input(text);
                  XmlDocument const document(input, builder);
                  EXPECT_FALSE(document.getRoot().isNull());
              }),
              10);
}

TEST(XmlMemory, AListThatFindsNoneStaysAsItWas)
{
    failInTurn([] {
        XmlAttributeList list;
        for (int i = 0; i < 10; ++i) {
            int const before = list.getLength();
            try {
                list.addAttribute("name", "a value that is long enough to need some room");
            } catch (std::bad_alloc const &) {
                EXPECT_EQ(before, list.getLength());
                list.addAttribute("other", "value");
                EXPECT_STREQ(list.getName(before).getChars(), "other");
                throw;
            }
        }
    });
}

TEST(XmlMemory, AnElementThatFindsNoneKeepsTheAttributesThatItHas)
{
    failInTurn([] {
        XmlElement element("a");
        int done = 0;
        try {
            for (; done < 40; ++done)
                element.setAttribute(("n" + std::to_string(done)).c_str(), done);
        } catch (std::bad_alloc const &) {
            for (int i = 0; i < 41; ++i) {
                LiString const name(("n" + std::to_string(i)).c_str());
                int value = -1;
                if (i < done) {
                    element.getAttribute(name, value);
                    EXPECT_EQ(i, value);
                } else {
                    EXPECT_THROW(element.getAttribute(name, value), XmlEx::ExNonExistentAttribute);
                }
            }
            throw;
        }
    });
}

TEST(XmlMemory, AWriterThatFindsNoneServesAgain)
{
    struct Item : XmlTopElement
    {
        XmlBaseElement *createElement(XmlReader &, LiString const &,
                                      XmlAttributeList const &) override
        {
            return nullptr;
        }
        LiString getTagName() const override { return "a"; }
        void performWrite(XmlWriter &writer) override { writer.writeAttribute("x", 1); }
        void performRead(XmlAttributeList const &) override {}
        void performReadEnd() override {}
    } item;
    XmlWriter writer;
    failInTurn([&] {
        LiString const xml(writer.toXml(item));
        EXPECT_STREQ(xml.getChars(), "\n<a\n    x=\"1\">\n</a>\n");
    });
}

TEST(XmlMemory, TheElementsAndValuesOfATextLieTogether)
{
    std::string many = "<a>";
    for (int i = 0; i < 2000; ++i)
        many += "<b x='a value of some length'>a text of some length</b>";
    many += "</a>";
    AllocationCount const count;
    XmlDocument const document(LiString(many.data(), many.size()));
    EXPECT_LT(count.get(), 200u);
}

/// Returns the output and the exit code of a process with that many buffers for a text of this
/// size.
std::string childSays(std::string const &buffers, std::string const &size)
{
    auto const end = ChildProcess({"--child", buffers, size}).await();
    return end.output + std::to_string(end.code);
}

TEST(XmlMemory, AProcessThatHasNoneToReadIntoEndsWithCodeTwo)
{
    char const end[] = "out of dynamic memory in yy_create_buffer()\n2";
    EXPECT_EQ(end, childSays("0", "1"));
    EXPECT_EQ(childSays("1", "1"), "0");
    EXPECT_EQ(end, childSays("1", "100000"));
}

} // namespace
} // namespace ZvTest
