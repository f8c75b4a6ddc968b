#include "resmgt/threads/mtEx.h"

#include "zvbase/objPtr.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace ZvTest {

using namespace Zv;

namespace {

template <class Exception>
void expectText(Exception const &exception, char const *text)
{
    EXPECT_STREQ(exception.getReason(), text);
    EXPECT_STREQ(exception.what(), text);
    EXPECT_STREQ(static_cast<ExBase const &>(exception).getReason(), text);
    EXPECT_STREQ(static_cast<std::exception const &>(exception).what(), text);
    ObjPtr<ExBase> const clone(static_cast<ExBase const &>(exception).clone());
    EXPECT_STREQ(clone->getReason(), text);
    EXPECT_STREQ(exception.getDetailedReason(), clone->getDetailedReason());
    EXPECT_NE(dynamic_cast<Exception *>(clone.get()), nullptr);
}

TEST(MtEx, GivesOneTextThroughEachBase)
{
    expectText(MtEx::ExNotImplemented("f", 1, "MtThread::setProcessorNb"),
               "Feature not implemented: MtThread::setProcessorNb");
    expectText(MtEx::ExNoContent("f", 1, "MtOpaqueData", "name"),
               "MtOpaqueData(\"name\") has no content");
    expectText(MtEx::ExStdThrownException("f", 1, "St9bad_alloc", "std::bad_alloc"),
               "Standard exception caught.\nType = \"St9bad_alloc\".\nWhat = \"std::bad_alloc\".");
    expectText(MtEx::ExRealTimeNotEnabled("f", 1, "no"), "Failure to enable real-time: no.");
    expectText(MtEx::ExThrownException("f", 1, new MtEx::ExNotImplemented("g", 2, "x")),
               "Feature not implemented: x");
}

template <class Exception, class... Arguments>
bool isCaughtAsAll(Arguments... arguments)
{
    int nbCaught = 0;
    try {
        throw Exception("f", 1, arguments...);
    } catch (MtEx const &) {
        ++nbCaught;
    }
    try {
        throw Exception("f", 1, arguments...);
    } catch (std::runtime_error const &) {
        ++nbCaught;
    }
    return nbCaught == 2;
}

TEST(MtEx, IsCaughtAsItsFamilyAndAsARuntimeError)
{
    EXPECT_TRUE((isCaughtAsAll<MtEx::ExNotImplemented>("x")));
    EXPECT_TRUE((isCaughtAsAll<MtEx::ExNoContent>("x", "y")));
    EXPECT_TRUE((isCaughtAsAll<MtEx::ExStdThrownException>("x", "y")));
    EXPECT_TRUE((isCaughtAsAll<MtEx::ExRealTimeNotEnabled>("x")));
}

TEST(MtEx, CarriedExceptionOutlivesTheOriginal)
{
    ObjPtr<ExBase> original(
        new MtEx::ExThrownException("f", 1, new MtEx::ExRealTimeNotEnabled("g", 2, "why")));
    ObjPtr<ExBase> const clone(original->clone());
    original.reset();
    EXPECT_STREQ(clone->getReason(), "Failure to enable real-time: why.");
    EXPECT_STREQ(clone->getDetailedReason(), "g(2): Failure to enable real-time: why.");
}

TEST(MtEx, AssignmentOfACarrierCopiesWhatIsCarried)
{
    MtEx::ExThrownException target("f", 1, new MtEx::ExNotImplemented("g", 2, "a"));
    {
        MtEx::ExThrownException const source("f", 1, new MtEx::ExNotImplemented("g", 3, "b"));
        target = source;
        EXPECT_NE(&target.getCarried(), &source.getCarried());
    }
    EXPECT_STREQ(target.getReason(), "Feature not implemented: b");
    target = *&target;
    EXPECT_STREQ(target.what(), "Feature not implemented: b");
}

} // namespace

} // namespace ZvTest
