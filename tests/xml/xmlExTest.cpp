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
        EXPECT_STREQ(error.getReason(), reason);
        EXPECT_STREQ(error.getFile(), "file.cpp");
        EXPECT_EQ(error.getLine(), 7);
        std::unique_ptr<ExBase> const copy(error.clone());
        EXPECT_STREQ(copy->getReason(), reason);
        EXPECT_NE(dynamic_cast<Failure *>(copy.get()), nullptr);
    }
    try {
        throw Failure("file.cpp", 7);
    } catch (std::domain_error const &error) {
        EXPECT_STREQ(error.what(), reason);
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
    EXPECT_EQ(error.getReason(), "Xml parsing error: '" + text.substr(0, 256) + "'.");
    EXPECT_STREQ(error.getReason(), error.what());
    EXPECT_STREQ(XmlEx::ExSaxParsingError("file.cpp", 7, "a").getReason(),
                 "Xml parsing error: 'a'.");
    EXPECT_STREQ(XmlEx::ExSaxParsingError("file.cpp", 7, nullptr).getReason(),
                 "Xml parsing error: ''.");
    std::unique_ptr<ExBase> const copy(error.clone());
    EXPECT_STREQ(error.getReason(), copy->getReason());
}

TEST(XmlEx, AClientsParsingErrorIsNotOfTheFamily)
{
    static_assert(std::is_base_of_v<std::invalid_argument, XmlEx::ExSaxParsingError>);
    static_assert(std::is_base_of_v<ExBase, XmlEx::ExSaxParsingError>);
    static_assert(!std::is_base_of_v<XmlEx, XmlEx::ExSaxParsingError>);
    EXPECT_THROW(throw XmlEx::ExSaxParsingError("file.cpp", 7, "a"), std::invalid_argument);
}

} // namespace
} // namespace ZvTest
