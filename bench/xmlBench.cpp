// Speed of reading XML with callbacks, reading it into a document, and writing it, compared with
// common libraries.

#include "resmgt/xml.h"

#include <benchmark/benchmark.h>
#include <expat.h>
#include <pugixml.hpp>
#include <tinyxml2.h>

#include <algorithm>
#include <cstddef>
#include <istream>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Zv;

constexpr std::size_t DOCUMENT_SIZE = 4 * 1024 * 1024;

/// Returns a show as an editing system describes it: indented elements with a few attributes each,
/// titles and notes as text, and some references, comments and CDATA sections.
std::string makeDocument()
{
    static char const * const words[] = {"Harbour", "interview", "wide shot", "night",
                                         "take",    "Anna",      "Oslo",      "rain &amp; wind",
                                         "voice",   "close"};
    std::string text =
        "<?xml version=\"1.0\"?>\n<!DOCTYPE show>\n<show name=\"Evening news\" rate=\"25\">\n";
    for (unsigned clip = 0; text.size() < DOCUMENT_SIZE; ++clip) {
        auto const word = [&](unsigned turn) { return words[(clip * 7 + turn * 3) % 10]; };
        std::string const number = std::to_string(clip);
        if (clip % 10 == 0)
            text += "    <!-- reel " + number + " -->\n";
        text += "    <clip id=\"c" + number + "\" file=\"/media/reel" + std::to_string(clip % 97) +
                "/take" + number + ".mxf\" in=\"" + std::to_string(clip * 25) + "\" out=\"" +
                std::to_string(clip * 25 + 250) + "\">\n";
        text +=
            std::string("        <title>") + word(1) + " " + word(2) + " " + number + "</title>\n";
        text += std::string("        <format codec=\"dv\" width=\"720\" height=\"576\"/>\n");
        if (clip % 4 == 0)
            text += std::string("        <note>\n            The ") + word(3) +
                    " has to stay, the " + word(4) + " may go: see " + word(5) +
                    " and the list of " + word(6) + ".\n        </note>\n";
        if (clip % 25 == 0)
            text += "        <script><![CDATA[if (a < b && b < c) cut();]]></script>\n";
        text += "        <audio channels=\"2\">\n            <level left=\"-12\" right=\"-11.5\" "
                "curve=\"" +
                std::string(word(7)) + "\"/>\n        </audio>\n    </clip>\n";
    }
    return text + "</show>\n";
}

std::string const &document()
{
    static std::string const &text = *new std::string(makeDocument());
    return text;
}

/// Returns `document()` without its texts, which `XmlDocument` does not write.
std::string const &bareDocument()
{
    static std::string const &text = *[] {
        std::ostringstream stream;
        stream << XmlDocument(LiString(document().data(), document().size()));
        return new std::string(stream.str());
    }();
    return text;
}

/// Stream over bytes in memory.
class Memory : private std::streambuf, public std::istream
{
public:
    explicit Memory(std::string const &text) : std::istream(static_cast<std::streambuf *>(this))
    {
        auto * const begin = const_cast<char *>(text.data());
        setg(begin, begin, begin + text.size());
    }
};

void count(benchmark::State &state, std::size_t bytes)
{
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

/// Handlers that copy the name and the attributes of every element, and every text. Those of the
/// peer do the same.
struct OurHandlers : XmlParserProtocolSax
{
    void startElement(LiString const &name, XmlAttributeList const &attributes) override
    {
        lastName = name;
        lastAttributes = attributes;
        ++elements;
    }
    void endElement(LiString const &) override {}
    void notifyTextData(LiString const &data) override { lastText = data; }
    void notifyCharacterData(LiString const &data) override { lastText = data; }

    LiString lastName;
    XmlAttributeList lastAttributes;
    LiString lastText;
    std::size_t elements = 0;
};

struct ExpatHandlers
{
    static void start(void *self, XML_Char const *name, XML_Char const **attributes)
    {
        auto &handlers = *static_cast<ExpatHandlers *>(self);
        handlers.lastName = name;
        handlers.lastAttributes.clear();
        for (; *attributes; attributes += 2)
            handlers.lastAttributes.emplace_back(attributes[0], attributes[1]);
        ++handlers.elements;
    }
    static void end(void *, XML_Char const *) {}
    static void text(void *self, XML_Char const *bytes, int length)
    {
        static_cast<ExpatHandlers *>(self)->lastText.assign(bytes,
                                                            static_cast<std::size_t>(length));
    }

    std::string lastName;
    std::vector<std::pair<std::string, std::string>> lastAttributes;
    std::string lastText;
    std::size_t elements = 0;
};

void passByOurs(benchmark::State &state)
{
    for (auto _ : state) {
        OurHandlers handlers;
        Memory stream(document());
        XmlParser::parse(handlers, stream);
        benchmark::DoNotOptimize(handlers.elements);
    }
    count(state, document().size());
}

void passByExpat(benchmark::State &state)
{
    for (auto _ : state) {
        ExpatHandlers handlers;
        XML_Parser const parser = XML_ParserCreate(nullptr);
        XML_SetUserData(parser, &handlers);
        XML_SetElementHandler(parser, ExpatHandlers::start, ExpatHandlers::end);
        XML_SetCharacterDataHandler(parser, ExpatHandlers::text);
        if (XML_Parse(parser, document().data(), static_cast<int>(document().size()), 1) !=
            XML_STATUS_OK)
            throw std::runtime_error(XML_ErrorString(XML_GetErrorCode(parser)));
        XML_ParserFree(parser);
        benchmark::DoNotOptimize(handlers.elements);
    }
    count(state, document().size());
}

void readOurs(benchmark::State &state)
{
    for (auto _ : state) {
        Memory stream(document());
        XmlDocument const read(stream);
        benchmark::DoNotOptimize(read.getRoot().get());
    }
    count(state, document().size());
}

void readTinyxml2(benchmark::State &state)
{
    for (auto _ : state) {
        tinyxml2::XMLDocument read;
        if (read.Parse(document().data(), document().size()) != tinyxml2::XML_SUCCESS)
            throw std::runtime_error(read.ErrorStr());
        benchmark::DoNotOptimize(read.RootElement());
    }
    count(state, document().size());
}

void readPugixml(benchmark::State &state)
{
    for (auto _ : state) {
        pugi::xml_document read;
        if (!read.load_buffer(document().data(), document().size()))
            throw std::runtime_error("pugixml");
        benchmark::DoNotOptimize(read.document_element());
    }
    count(state, document().size());
}

void writeOurs(benchmark::State &state)
{
    XmlDocument const read(LiString(bareDocument().data(), bareDocument().size()));
    std::size_t size = 0;
    for (auto _ : state) {
        std::ostringstream stream;
        stream << read;
        size = static_cast<std::size_t>(stream.tellp());
    }
    count(state, size);
}

void writePugixml(benchmark::State &state)
{
    pugi::xml_document read;
    read.load_buffer(bareDocument().data(), bareDocument().size());
    std::size_t size = 0;
    for (auto _ : state) {
        std::ostringstream stream;
        read.save(stream, "");
        size = static_cast<std::size_t>(stream.tellp());
    }
    count(state, size);
}

BENCHMARK(passByOurs)->Name("xmlPass/ours");
BENCHMARK(passByExpat)->Name("xmlPass/expat");
BENCHMARK(readOurs)->Name("xmlRead/ours");
BENCHMARK(readTinyxml2)->Name("xmlRead/tinyxml2");
BENCHMARK(readPugixml)->Name("xmlRead/pugixml");
BENCHMARK(writeOurs)->Name("xmlWrite/ours");
BENCHMARK(writePugixml)->Name("xmlWrite/pugixml");

} // namespace
