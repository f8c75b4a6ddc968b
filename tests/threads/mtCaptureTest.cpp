#include "resmgt/threads/mtCapture.h"

#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "testing/aborted.h"
#include "zvbase/objPtr.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <utility>

namespace ZvTest {

namespace {

using namespace Zv;

struct Owned
{
    explicit Owned(int &counter) : nbDestroyed(counter) {}
    ~Owned() noexcept(false) { ++nbDestroyed; }
    int value = 7;
    int &nbDestroyed;
};

struct Shared : RCBase<LkCounter<long>>
{
    int value = 7;
};

static_assert(std::is_nothrow_destructible_v<MtCapture<ObjPtr<Owned>>>);
static_assert(std::is_nothrow_destructible_v<MtCapture<RCShdPtr<Shared>>>);

TEST(MtCapture, StandardThreadOwnsTheCapturedObject)
{
    int nbDestroyed = 0;
    ObjPtr<Owned> owner(new Owned(nbDestroyed));
    int value = 0;
    std::thread thread(
        [&value, captured = MtCapture(std::move(owner))] { value = captured->value; });
    EXPECT_TRUE(owner.isNull());
    thread.join();
    EXPECT_EQ(value, 7);
    EXPECT_EQ(nbDestroyed, 1);
}

TEST(MtCapture, LambdaMayDestroyTheCapturedObject)
{
    int nbDestroyed = 0;
    ObjPtr<Owned> owner(new Owned(nbDestroyed));
    int nbInBody = 0;
    auto body = [&, captured = MtCapture(std::move(owner))]() mutable {
        captured.get().reset();
        nbInBody = nbDestroyed;
    };
    std::thread(std::move(body)).join();
    EXPECT_EQ(nbInBody, 1);
    EXPECT_EQ(nbDestroyed, 1);
}

TEST(MtCapture, CopiesShareASharedObject)
{
    RCShdPtr<Shared> const shared(new Shared);
    {
        std::function<void()> const function = [captured = MtCapture(shared)] {
            (*captured).value = 8;
        };
        std::thread(function).join();
        EXPECT_FALSE(shared.isUnique());
    }
    EXPECT_EQ(shared->value, 8);
    EXPECT_TRUE(shared.isUnique());
}

struct Failing
{
    ~Failing() noexcept(false) { throw std::runtime_error("the end of the captured object"); }
};

TEST(MtCaptureDeathTest, ADestructorThatThrowsEndsTheProcess)
{
    EXPECT_EXIT(
        {
            try {
                MtCapture const captured{ObjPtr<Failing>(new Failing)};
            } catch (...) {
            }
            std::_Exit(0);
        },
        aborted(), "");
}

} // namespace

} // namespace ZvTest
