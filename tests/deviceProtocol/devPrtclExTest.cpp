#include "resmgt/deviceProtocol/devPrtclEx.h"

#include "zvbase/failures.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace ZvTest {

using namespace Zv;

namespace {

/// Throws the exception and catches it as each of its base classes. Returns its text.
template <class Exception, class... Arguments>
std::string textOf(Arguments... arguments)
{
    try {
        ZV_THROW(Exception, arguments...);
    } catch (DevPrtclEx &family) {
        std::string const text = family.getReason();
        auto &standard = dynamic_cast<std::logic_error &>(family);
        EXPECT_EQ(standard.what(), text);
        std::unique_ptr<ExBase> const clone(family.clone());
        EXPECT_NE(dynamic_cast<Exception *>(clone.get()), nullptr);
        EXPECT_EQ(clone->getReason(), text);
        EXPECT_NE(std::string(clone->getFile()).find("devPrtclExTest.cpp"), std::string::npos);
        return text;
    }
}

TEST(DevPrtclEx, TextsWithoutDetails)
{
    EXPECT_EQ(textOf<DevPrtclEx::ExNameNotRegistered>(), "Device name not found in the registry.");
    EXPECT_EQ(textOf<DevPrtclEx::ExNameNotUnique>(), "Not a unique name.");
    EXPECT_EQ(textOf<DevPrtclEx::ExMDStdAddStream>(),
              "Attempt to add stream after iterator created.");
    EXPECT_EQ(textOf<DevPrtclEx::ExMDStdPropertySetBuilderPop>(),
              "Trying to pop the builder's property stack when it is empty.");
}

TEST(DevPrtclEx, AnIllegalOperationIsTextedWithoutTheQuoteBeforeTheProperty)
{
    EXPECT_EQ((textOf<DevPrtclEx::ExMDPropertyIllegalOp>("set", "gain")),
              "\"set\" is not available for property gain\".");
}

TEST(DevPrtclEx, TheTextsOfTheTwoPhasesNameTheDevice)
{
    EXPECT_EQ((textOf<DevPrtclEx::ExMDStdPropertiesReadUnavail>("camera", "property sets")),
              "Read-only access to camera property sets forbidden while property builders are "
              "active.");
    EXPECT_EQ(textOf<DevPrtclEx::ExMDStdPropertiesWriteUnavail>("camera"),
              "Read-write access to camera properties forbidden after read-only access has "
              "started.");
}

TEST(DevPrtclEx, AGetWithoutANameIsOneOfAnUnknownProperty)
{
    EXPECT_EQ(textOf<DevPrtclEx::ExMDStdPropertyGet>("gain"),
              "Error while getting the value for gain");
    EXPECT_EQ(textOf<DevPrtclEx::ExMDStdPropertyGet>(static_cast<char const *>(nullptr)),
              "Error while getting the value for <unknown>");
}

TEST(DevPrtclEx, ATextThatIsTooLongIsCut)
{
    std::string const name(3000, 'x');
    std::string const text = textOf<DevPrtclEx::ExMDStdPropertyGet>(name.c_str());
    EXPECT_EQ(text, ("Error while getting the value for " + name).substr(0, text.size()));
    EXPECT_EQ(text.size(), ExBase::REASON_CAPACITY);
}

} // namespace
} // namespace ZvTest
