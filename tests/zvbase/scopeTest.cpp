// Tests of scope guards, failures of several actions, and destructors that throw.

#include "zvbase/scope.private.h"

#include "zvbase/firstFailure.private.h"
#include "zvbase/logTestUtil.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

[[noreturn]] void fail(char const *what)
{
    throw std::runtime_error(what);
}

/// Runs an action while an exception unwinds the stack. Keeps what the action throws.
class WhileUnwinding
{
public:
    explicit WhileUnwinding(std::function<void()> action) : _action(std::move(action)) {}
    ~WhileUnwinding()
    {
        try {
            _action();
        } catch (std::exception const &failure) {
            thrown = failure.what();
        }
    }

    static std::string run(std::function<void()> action)
    {
        thrown = "nothing";
        try {
            WhileUnwinding const unwinding(std::move(action));
            fail("the exception that unwinds");
        } catch (std::runtime_error const &) {
        }
        return thrown;
    }

private:
    std::function<void()> _action;
    static std::string thrown;
};

std::string WhileUnwinding::thrown;

/// Scope object with a destructor that fails.
class FailingScope
{
public:
    ~FailingScope() noexcept(false)
    {
        throwUnlessUnwinding(_unwinding, "x.cpp", 7, [] { fail("the scope's own"); });
    }

private:
    Unwinding _unwinding;
};

TEST(AtScopeEnd, RunsItsActionOnceAlsoAfterAnException)
{
    int nbRuns = 0;
    {
        AtScopeEnd const end([&nbRuns] { ++nbRuns; });
        EXPECT_EQ(nbRuns, 0);
    }
    EXPECT_EQ(nbRuns, 1);
    EXPECT_THROW(
        {
            AtScopeEnd const end([&nbRuns] { ++nbRuns; });
            fail("x");
        },
        std::runtime_error);
    EXPECT_EQ(nbRuns, 2);
}

TEST(AtScopeEnd, ThrowsWhatItsActionThrows)
{
    auto const failing = [] { fail("the action's own"); };
    EXPECT_THROW({ AtScopeEnd const end(failing); }, std::runtime_error);
    static_assert(!std::is_nothrow_destructible_v<AtScopeEnd<decltype(failing)>>);

    auto const safe = []() noexcept {};
    static_assert(std::is_nothrow_destructible_v<AtScopeEnd<decltype(safe)>>);
}

TEST(TemporaryValue, PutsTheFormerValueBackAlsoAfterAnException)
{
    std::string text = "former";
    {
        TemporaryValue const outer(text, std::string("outer"));
        EXPECT_EQ(text, "outer");
        {
            TemporaryValue const inner(text, std::string("inner"));
            text = "changed";
        }
        EXPECT_EQ(text, "outer");
    }
    EXPECT_EQ(text, "former");
    EXPECT_THROW(
        {
            TemporaryValue const outer(text, std::string("outer"));
            fail("x");
        },
        std::runtime_error);
    EXPECT_EQ(text, "former");
}

TEST(Unwinding, HasNotBegunWithoutAnException)
{
    Unwinding const unwinding;
    EXPECT_FALSE(unwinding.hasBegun());
    EXPECT_FALSE(Unwinding::ofAny().hasBegun());
    try {
        fail("x");
    } catch (std::runtime_error const &) {
        EXPECT_FALSE(unwinding.hasBegun()) << "the exception is caught";
        EXPECT_FALSE(Unwinding::ofAny().hasBegun());
    }
}

TEST(Unwinding, CountsOnlyExceptionsAfterItsConstruction)
{
    Unwinding const before;
    Unwinding const any = Unwinding::ofAny();
    WhileUnwinding::run([&before, &any] {
        Unwinding const inside;
        EXPECT_TRUE(before.hasBegun());
        EXPECT_FALSE(inside.hasBegun());
        EXPECT_TRUE(Unwinding::ofAny().hasBegun());
        EXPECT_TRUE(any.hasBegun());
    });
}

TEST(Unwinding, CopiesCountFromTheirOwnConstruction)
{
    Unwinding const before;
    Unwinding assigned;
    WhileUnwinding::run([&before, &assigned] {
        Unwinding const copy(before);
        EXPECT_FALSE(copy.hasBegun());
        assigned = copy;
        EXPECT_TRUE(assigned.hasBegun());
    });
}

TEST(ThrowUnlessUnwinding, PassesTheFailureOn)
{
    CapturedLog const log;
    EXPECT_THROW({ FailingScope const scope; }, std::runtime_error);
    EXPECT_TRUE(log.getLines().empty());
}

TEST(ThrowUnlessUnwinding, TracesTheFailureWhileAnotherExceptionLeavesTheScope)
{
    CapturedLog const log;
    try {
        FailingScope const scope;
        fail("the first");
    } catch (std::runtime_error const &failure) {
        EXPECT_STREQ(failure.what(), "the first");
    }
    ASSERT_EQ(log.getLines().size(), 1U);
    EXPECT_NE(log.getLines()[0].find("x.cpp(7): Exception: the scope's own"), std::string::npos)
        << log.getLines()[0];
}

TEST(ThrowUnlessUnwinding, PassesTheFailureOnInsideOfADestructorThatUnwindingRuns)
{
    CapturedLog const log;
    EXPECT_EQ(WhileUnwinding::run([] { FailingScope const scope; }), "the scope's own");
    EXPECT_TRUE(log.getLines().empty());
}

TEST(ThrowUnlessUnwinding, OfAnyTracesInsideOfADestructorThatUnwindingRuns)
{
    CapturedLog const log;
    EXPECT_EQ(WhileUnwinding::run(
                  [] { throwUnlessUnwinding(Unwinding::ofAny(), "x.cpp", 7, [] { fail("x"); }); }),
              "nothing");
    EXPECT_EQ(log.getLines().size(), 1U);
}

TEST(FirstFailure, TriesAllAndThrowsTheFirst)
{
    std::vector<int> tried;
    FirstFailure failure;
    EXPECT_NO_THROW(failure.rethrowAlways());
    EXPECT_NO_THROW(failure.rethrow());
    failure.attempt([&tried] { tried.push_back(1); });
    failure.attempt([&tried] {
        tried.push_back(2);
        fail("second");
    });
    failure.attempt([&tried] {
        tried.push_back(3);
        fail("third");
    });
    EXPECT_EQ(tried, (std::vector{1, 2, 3}));
    try {
        failure.rethrow();
        FAIL();
    } catch (std::runtime_error const &first) {
        EXPECT_STREQ(first.what(), "second");
    }
    EXPECT_THROW(failure.rethrowAlways(), std::runtime_error);
}

TEST(FirstFailure, OfADestructorIsDroppedWhileUnwinding)
{
    FirstFailure failure;
    failure.attempt([] { fail("kept"); });
    Unwinding const before;
    EXPECT_EQ(WhileUnwinding::run([&failure] { failure.rethrow(); }), "nothing");
    EXPECT_EQ(WhileUnwinding::run([&] { failure.rethrow(before); }), "nothing");
}

TEST(FirstFailure, OfAFunctionIsThrownEvenWhileUnwinding)
{
    FirstFailure failure;
    failure.attempt([] { fail("kept"); });
    EXPECT_EQ(WhileUnwinding::run([&failure] { failure.rethrowAlways(); }), "kept");
    EXPECT_EQ(WhileUnwinding::run([&failure] { failure.rethrow(Unwinding()); }), "kept");
}

TEST(FirstFailure, OfReleasedElementsIsThrownAfterAllAreReleased)
{
    struct Element
    {
        int &nbAlive;
        bool fails;
        Element(int &alive, bool isFailing) : nbAlive(alive), fails(isFailing) { ++nbAlive; }
        ~Element() noexcept(false)
        {
            --nbAlive;
            if (fails)
                fail("element");
        }
    };
    int nbAlive = 0;
    std::vector<ObjPtr<Element>> elements(3);
    for (auto &element : elements)
        element = makeObj<Element>(nbAlive, &element == &elements[1]);
    EXPECT_THROW(releaseAll(elements), std::runtime_error);
    EXPECT_EQ(nbAlive, 0);
    for (auto const &element : elements)
        EXPECT_FALSE(element);
}

} // namespace
} // namespace ZvTest
