#include "resmgt/deviceManager/devMgrEx.h"

#include "zvbase/failures.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace ZvTest {

using namespace Zv;

namespace {

/// Throws the exception, catches it as each of its base classes, and returns its reason.
template <class Exception, class... Arguments>
std::string reasonOf(Arguments... arguments)
{
    auto const raise = [&] { ZV_THROW(Exception, arguments...); };
    std::string reason;
    try {
        raise();
    } catch (std::logic_error const &caught) {
        reason = caught.what();
    }
    try {
        raise();
    } catch (DevMgrEx const &caught) {
        EXPECT_EQ(caught.getReason(), reason);
        std::unique_ptr<ExBase> const copy(caught.clone());
        EXPECT_EQ(copy->getReason(), reason);
        EXPECT_NE(dynamic_cast<Exception *>(copy.get()), nullptr);
        EXPECT_EQ(dynamic_cast<std::logic_error &>(*copy).what(), reason);
    }
    EXPECT_THROW(raise(), ExBase);
    return reason;
}

TEST(DevMgrExTest, EachClassHasItsText)
{
    EXPECT_EQ(reasonOf<DevMgrEx::NameNotUnique>(), "Not a unique name.");
    EXPECT_EQ(reasonOf<DevMgrEx::NameNotRegistered>(), "Not a registered object.");
    EXPECT_EQ(reasonOf<DevMgrEx::NameNotFound>(), "Named device not found.");
    EXPECT_EQ(reasonOf<DevMgrEx::BadMDPrtclImp>(), "Managed device protocol not implemented.");
    EXPECT_EQ(reasonOf<DevMgrEx::SMExecutionError>(), "State machine error condition.");
    EXPECT_EQ(reasonOf<DevMgrEx::SMDomainError>(), "State machine domain error.");
    EXPECT_EQ(reasonOf<DevMgrEx::SMBadImp>(), "State machine bad implementation.");
    EXPECT_EQ(reasonOf<DevMgrEx::SMBadTransitionImp>(), "Bad transition implementation.");
}

TEST(DevMgrExTest, ADetailIsTheWholeReason)
{
    EXPECT_EQ(reasonOf<DevMgrEx::ConfigSyntaxError>("a:b [ what ]"), "a:b [ what ]");
    EXPECT_EQ(reasonOf<DevMgrEx::PropertySyntaxError>("a:b [ what ]"), "a:b [ what ]");
    EXPECT_EQ(reasonOf<DevMgrEx::StreamNotAvailable>("in use"), "in use");
    EXPECT_EQ(reasonOf<DevMgrEx::StreamsNotCompatible>("too wide"), "too wide");
}

TEST(DevMgrExTest, WithoutADetailHasTheFixedText)
{
    char const * const none = nullptr;
    EXPECT_EQ(reasonOf<DevMgrEx::ConfigSyntaxError>(none), "Configuration string Syntax error.");
    EXPECT_EQ(reasonOf<DevMgrEx::PropertySyntaxError>(none), "Property string syntax error.");
    EXPECT_EQ(reasonOf<DevMgrEx::StreamNotAvailable>(none), "");
    EXPECT_EQ(reasonOf<DevMgrEx::StreamsNotCompatible>(none), "");
}

TEST(DevMgrExTest, PropertyInvalidTypeKeepsItsMisspelling)
{
    char const * const none = nullptr;
    EXPECT_EQ(reasonOf<DevMgrEx::PropertyInvalidType>("gain"),
              "Illegal type converion of property gain");
    EXPECT_EQ(reasonOf<DevMgrEx::PropertyInvalidType>(none),
              "Illegal type converion of property <unknown>");
}

TEST(DevMgrExTest, ADetailThatIsTooLongIsCut)
{
    std::string const detail(5000, 'x');
    EXPECT_EQ(reasonOf<DevMgrEx::ConfigSyntaxError>(detail.c_str()),
              std::string(ExBase::REASON_CAPACITY, 'x'));
}

TEST(DevMgrExTest, TheThrowingPlaceIsKept)
{
    int const line = __LINE__ + 2;
    try {
        ZV_THROW(DevMgrEx::NameNotFound);
    } catch (DevMgrEx const &caught) {
        EXPECT_EQ(caught.getLine(), line);
        EXPECT_EQ(std::string(caught.getDetailedReason()), std::string(__FILE__) + "(" +
                                                               std::to_string(line) +
                                                               "): Named device not found.");
    }
}

} // namespace
} // namespace ZvTest
