// What the tests of XML share.
#pragma once

#include "resmgt/xml.h"
#include "testing/failures.h"
#include "testing/smallStack.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace ZvTest {

using namespace Zv;

/// All bytes, zero bytes among them.
inline std::string bytesOf(LiString const &string)
{
    return std::string(string.getChars(), static_cast<std::size_t>(string.getLength()));
}

/// Records the calls of the parser.
class Recorder : public XmlParserProtocol
{
public:
    void createXmlDeclaration(LiString const &version) override { add("declaration", version); }
    void createDocumentType(LiString const &name) override { add("type", name); }
    void notifyBeginElement(LiString const &name) override { add("begin", name); }
    void notifyEmptyElementEnd() override { told += "emptyEnd "; }
    void notifyStartTagEnd() override { told += "tagEnd "; }
    void notifyClosingElement(LiString const &name) override { add("close", name); }
    void pushAttribute(LiString const &name, LiString const &value) override
    {
        told += bytesOf(name) + "=[" + bytesOf(value) + "] ";
    }
    void notifyTextData(LiString const &data) override { add("text", data); }
    void notifyCharacterData(LiString const &data) override { add("cdata", data); }

    std::string told;

private:
    void add(char const *what, LiString const &text)
    {
        told += std::string(what) + "[" + bytesOf(text) + "] ";
    }
};

/// Returns the calls of the parser for a text, with the reason of the failure at the end.
inline std::string toldOf(std::istream &input)
{
    Recorder recorder;
    try {
        XmlParser::parse(recorder, input);
    } catch (XmlEx const &error) {
        return recorder.told + error.getReason();
    }
    return recorder.told;
}

inline std::string toldOf(std::string const &text)
{
    std::istringstream input(text);
    return toldOf(input);
}

template <class Action>
std::string reasonOf(Action const &action)
{
    return reasonOf<XmlEx>(action);
}

/// Returns that many nested elements.
inline std::string nested(int levels)
{
    std::string text;
    for (int i = 0; i < levels; ++i)
        text += "<a>";
    for (int i = 0; i < levels; ++i)
        text += "</a>";
    return text;
}

} // namespace ZvTest
