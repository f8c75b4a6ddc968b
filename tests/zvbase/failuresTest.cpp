#include "zvbase/failures.h"

#include "platform/services.h"
#include "zvbase/exSysError.h"
#include "zvbase/logTestUtil.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace ZvTest {

using namespace Zv;

namespace {

constexpr char FILE_NAME[] = "../tests/zvbase/failuresTest.cpp";

TEST(Assertions, ATrueConditionHasNoEffect)
{
    CapturedLog const log;
    int evaluated = 0;
    ZV_ASSERT(++evaluated);
    ZV_SYS_ASSERT(++evaluated);
    ZV_ASSERT_IN_DESTRUCTOR(++evaluated);
    ZV_SYS_ASSERT_IN_DESTRUCTOR(++evaluated);
    EXPECT_EQ(evaluated, 4);
    EXPECT_TRUE(log.getLines().empty());
}

TEST(Assertions, AFalseConditionIsTracedAndThrown)
{
    CapturedLog const log;
    int const numGatees = 0;
    int const line = __LINE__ + 2;
    try {
        ZV_ASSERT(numGatees > 0);
        FAIL();
    } catch (AssertionFailed const &failure) {
        EXPECT_STREQ(failure.getExpression(), "numGatees > 0");
        EXPECT_STREQ(failure.getFile(), FILE_NAME);
        EXPECT_EQ(failure.getLine(), line);
        EXPECT_FALSE(failure.hasSystemError());
        EXPECT_EQ(failure.what(), std::string(FILE_NAME) + "(" + std::to_string(line) +
                                      "): Assertion \"numGatees > 0\" failed");
        ASSERT_EQ(log.getLines().size(), 1U);
        EXPECT_EQ(log.getLines()[0].substr(13),
                  std::string("unknown         ") + failure.what() + "\n");
    }
}

TEST(Assertions, BlanksOfAConditionStayInItsReport)
{
    CapturedLog const log;
    try {
        ZV_ASSERT(::strlen( "" ) > 0);
        FAIL();
    } catch (AssertionFailed const &failure) {
        EXPECT_STREQ(failure.getExpression(), "::strlen( \"\" ) > 0");
    }
}

TEST(Assertions, AConditionWithACommaIsOne)
{
    CapturedLog const log;
    try {
        ZV_ASSERT(std::is_same_v<int, long>);
        FAIL();
    } catch (AssertionFailed const &failure) {
        EXPECT_STREQ(failure.getExpression(), "std::is_same_v<int, long>");
    }
}

TEST(Assertions, AFailedSystemCallHasItsErrorCode)
{
    CapturedLog const log;
    int const line = __LINE__ + 3;
    ::SetLastError(6);
    try {
        ZV_SYS_ASSERT(false);
        FAIL();
    } catch (AssertionFailed const &failure) {
        EXPECT_TRUE(failure.hasSystemError());
        EXPECT_EQ(failure.getSystemError(), 6);
        EXPECT_EQ(failure.what(),
                  std::string(FILE_NAME) + "(" + std::to_string(line) +
                      "): Assertion \"false\" failed, system error 6: The handle is invalid.");
    }
    ::SetLastError(4711);
    try {
        ZV_SYS_ASSERT(false);
        FAIL();
    } catch (AssertionFailed const &failure) {
        EXPECT_TRUE(std::string(failure.what()).ends_with("failed, system error 4711"));
    }
}

TEST(Assertions, AnAbortReportsItsFileAndLine)
{
    CapturedLog const log;
    int const line = __LINE__ + 2;
    try {
        ZV_ABORT_PROGRAM();
        FAIL();
    } catch (ProgramAborted const &failure) {
        EXPECT_STREQ(failure.getFile(), FILE_NAME);
        EXPECT_EQ(failure.getLine(), line);
        EXPECT_EQ(failure.what(),
                  std::string(FILE_NAME) + "(" + std::to_string(line) + "): Program aborted");
        EXPECT_EQ(log.getTexts().at(0), "Program aborted\n");
    }
}

TEST(Assertions, AreLogicErrorsAndNoDevicesFailure)
{
    static_assert(std::is_base_of_v<std::logic_error, AssertionFailed>);
    static_assert(std::is_base_of_v<std::logic_error, ProgramAborted>);
    static_assert(!std::is_base_of_v<ExBase, AssertionFailed>);
    static_assert(!std::is_base_of_v<ExBase, ProgramAborted>);
}

TEST(Assertions, ReachTheLogThroughTheQueueOfTheirThread)
{
    CapturedLog const log;
    TestLogger logger;
    EXPECT_THROW(ZV_ASSERT(false), AssertionFailed);
    EXPECT_TRUE(log.getLines().empty());
    logger.flush();
    EXPECT_EQ(log.getTexts().at(0), "Assertion \"false\" failed\n");
}

struct AssertingDestructor
{
    ~AssertingDestructor() noexcept(false)
    {
        ZV_ASSERT_IN_DESTRUCTOR(!"plain");
        ::SetLastError(6);
        ZV_SYS_ASSERT_IN_DESTRUCTOR(!"system");
        ++nbFinished;
    }
    static inline int nbFinished = 0;
};

TEST(Assertions, InADestructorThrowWhenNoExceptionIsPassing)
{
    CapturedLog const log;
    AssertingDestructor::nbFinished = 0;
    EXPECT_THROW(AssertingDestructor(), AssertionFailed);
    EXPECT_EQ(AssertingDestructor::nbFinished, 0);
    EXPECT_EQ(log.getLines().size(), 1U);
}

TEST(Assertions, InADestructorOnlyReportWhileAnExceptionIsPassing)
{
    CapturedLog const log;
    AssertingDestructor::nbFinished = 0;
    auto const fail = [] {
        AssertingDestructor const object;
        throw std::runtime_error("passing");
    };
    EXPECT_THROW(fail(), std::runtime_error);
    EXPECT_EQ(AssertingDestructor::nbFinished, 1);
    EXPECT_EQ(log.getTexts(),
              (std::vector<std::string>{
                  "Assertion \"!\"plain\"\" failed\n",
                  "Assertion \"!\"system\"\" failed, system error 6: The handle is invalid.\n"}));
}

// ---- system errors

TEST(ExSysError, TakesTheLastErrorItself)
{
    ::SetLastError(183);
    ExSysErrorWindows const failure("a.cpp", 12);
    EXPECT_EQ(failure.getSystemError(), 183);
    EXPECT_STREQ(failure.getReason(), "System error 183: An object of that name exists already.");
    EXPECT_STREQ(failure.what(), failure.getReason());
    EXPECT_STREQ(failure.getDetailedReason(),
                 "a.cpp(12): System error 183: An object of that name exists already.");
}

TEST(ExSysError, HasATextForAnyCode)
{
    ::SetLastError(4711);
    EXPECT_STREQ(ExSysErrorWindows("a.cpp", 1).what(), "System error 4711.");
    EXPECT_EQ(ExSysError::getMeaning(4711), nullptr);
    for (int code : {0, 2, 5, 6, 8, 50, 87, 123, 183, 206, 259, 288, 298, 487, 1314, 1460})
        EXPECT_NE(ExSysError::getMeaning(code), nullptr) << code;
}

template <class Caught>
bool isCaughtAs()
{
    try {
        ZV_THROW(ExSysErrorWindows);
    } catch (Caught const &) {
        return true;
    } catch (...) {
        return false;
    }
}

TEST(ExSysError, IsCaughtByEachOfItsBases)
{
    EXPECT_TRUE(isCaughtAs<ExSysErrorWindows>());
    EXPECT_TRUE(isCaughtAs<ExSysError>());
    EXPECT_TRUE(isCaughtAs<ExBase>());
    EXPECT_TRUE(isCaughtAs<std::runtime_error>());
    EXPECT_FALSE(isCaughtAs<std::logic_error>());
}

TEST(ExSysError, IsClonedWhole)
{
    ::SetLastError(6);
    ObjPtr<ExBase> original(new ExSysErrorWindows("a.cpp", 1));
    ObjPtr<ExBase> const copy(original->clone());
    original.reset();
    ::SetLastError(0);
    auto const * const clone = dynamic_cast<ExSysErrorWindows const *>(copy.get());
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(clone->getSystemError(), 6);
    EXPECT_STREQ(clone->what(), "System error 6: The handle is invalid.");
}

// ---- the root

class ExTest : public std::out_of_range, public ExBase
{
public:
    ExTest(char const *file, int line) : std::out_of_range(""), ExBase(file, line) {}
    ZV_EXCEPTION_MEMBERS(ExTest)
    using ExBase::formatReason;
    using ExBase::setReason;
};

TEST(ExBase, BuildsItsReasonPieceByPiece)
{
    ExTest failure("x.cpp", 7);
    EXPECT_STREQ(failure.getReason(), "");
    EXPECT_STREQ(failure.getDetailedReason(), "x.cpp(7): ");
    failure.setReason("one");
    failure.setReason(nullptr);
    failure.setReason(", %s");
    failure.formatReason(", %d", 3);
    EXPECT_STREQ(failure.getReason(), "one, %s, 3");
    EXPECT_STREQ(failure.getDetailedReason(), "x.cpp(7): one, %s, 3");
    EXPECT_STREQ(static_cast<std::exception &>(failure).what(), "one, %s, 3");
}

TEST(ExBase, ALongReasonIsCut)
{
    ExTest failure("x.cpp", 7);
    std::string const text(600, 'a');
    failure.setReason(text.c_str());
    failure.setReason(text.c_str());
    failure.setReason("more");
    EXPECT_EQ(failure.getReason(), std::string(ExBase::REASON_CAPACITY, 'a'));
}

TEST(ExBase, ALongFileNameIsCutAndTheReasonIsNot)
{
    std::string const file(1000, 'f');
    ExTest failure(file.c_str(), 7);
    failure.setReason("reason");
    EXPECT_STREQ(failure.getReason(), "reason");
    EXPECT_EQ(failure.getFile(), file);
    EXPECT_TRUE(std::string(failure.getDetailedReason()).ends_with("reason"));
}

TEST(ExBase, CopiesKeepTheirText)
{
    ExTest first("x.cpp", 7);
    first.setReason("first");
    ExTest copy(first);
    ExTest assigned("y.cpp", 8);
    assigned.setReason("a longer one that goes away");
    assigned = first;
    ExTest &same = assigned;
    assigned = same;
    first.setReason(" changed");
    EXPECT_STREQ(copy.getDetailedReason(), "x.cpp(7): first");
    EXPECT_STREQ(assigned.getDetailedReason(), "x.cpp(7): first");
    EXPECT_EQ(assigned.getLine(), 7);
    copy.setReason(" on");
    EXPECT_STREQ(copy.getReason(), "first on");
    assigned.setReason(" goes on");
    EXPECT_STREQ(assigned.getReason(), "first goes on");
    copy = assigned;
    EXPECT_STREQ(copy.getDetailedReason(), "x.cpp(7): first goes on") << "from a longer one";
}

} // namespace
} // namespace ZvTest
