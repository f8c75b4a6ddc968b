#include "xmlTesting.h"

#include <memory>
#include <stdexcept>

namespace ZvTest {
namespace {

template <class Failure>
void expectReason(char const *reason)
{
    try {
        throw Failure("file.cpp", 7);
    } catch (XmlEx const &error) {
        EXPECT_STREQ(reason, error.getReason());
        EXPECT_STREQ("file.cpp", error.getFile());
        EXPECT_EQ(7, error.getLine());
        std::unique_ptr<ExBase> const copy(error.clone());
        EXPECT_STREQ(reason, copy->getReason());
        EXPECT_NE(nullptr, dynamic_cast<Failure *>(copy.get()));
    }
    try {
        throw Failure("file.cpp", 7);
    } catch (std::domain_error const &error) {
        EXPECT_STREQ(reason, error.what());
    }
}

TEST(XmlEx, EachClassHasItsReasonAndIsADomainError)
{
    expectReason<XmlEx::ExSyntaxError>("Syntax error.");
    expectReason<XmlEx::ExLexicalError>("Lexical error.");
    expectReason<XmlEx::ExXmlVersionNotSupported>("XML version not supported.");
    expectReason<XmlEx::ExChildNotFound>("The reference element is not a child of this element.");
    expectReason<XmlEx::ExNonExistentAttribute>("Non existent attribute.");
    expectReason<XmlEx::ExConversionError>("Conversion error.");
}

TEST(XmlEx, AClientsParsingErrorShowsTheFirst256Bytes)
{
    std::string const text(300, 'x');
    XmlEx::ExSaxParsingError const error("file.cpp", 7, text.c_str());
    EXPECT_EQ("Xml parsing error: '" + text.substr(0, 256) + "'.", error.getReason());
    EXPECT_STREQ(error.getReason(), error.what());
    EXPECT_STREQ("Xml parsing error: 'a'.",
                 XmlEx::ExSaxParsingError("file.cpp", 7, "a").getReason());
    EXPECT_STREQ("Xml parsing error: ''.",
                 XmlEx::ExSaxParsingError("file.cpp", 7, nullptr).getReason());
    std::unique_ptr<ExBase> const copy(error.clone());
    EXPECT_STREQ(error.getReason(), copy->getReason());
}

TEST(XmlEx, AClientsParsingErrorIsNoneOfTheFamily)
{
    static_assert(std::is_base_of_v<std::invalid_argument, XmlEx::ExSaxParsingError>);
    static_assert(std::is_base_of_v<ExBase, XmlEx::ExSaxParsingError>);
    static_assert(!std::is_base_of_v<XmlEx, XmlEx::ExSaxParsingError>);
    EXPECT_THROW(throw XmlEx::ExSaxParsingError("file.cpp", 7, "a"), std::invalid_argument);
}

} // namespace
} // namespace ZvTest
