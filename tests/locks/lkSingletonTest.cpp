#include "locks/lockTestUtil.h"
#include "platform/services.h"
#include "resmgt/locks/lkSingleton.imp.h"
#include "zvbase/exSysError.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace ZvTest {

using namespace Zv;

template <int Number>
struct Single
{
    static Single &getInstance() { return LkSingleton<Single>::getInstance(); }
    Single() { ++made; }
    ~Single() { ++destroyed; }
    static inline std::atomic<int> made = 0;
    static inline std::atomic<int> destroyed = 0;
};

struct Interface
{
    static Interface &getInstance() { return LkSingleton<Interface>::getInstance(); }
    virtual ~Interface() = default;
    virtual std::string name() const = 0;
};

struct Implementation : Interface
{
    std::string name() const override { return "implementation"; }
};

struct Inner
{
    int value = 42;
};

struct Outer
{
    Outer() : value(LkSingleton<Inner>::getInstance().value + 1) {}
    int value;
};

struct Failing
{
    Failing()
    {
        if (attempts++ == 0)
            throw std::runtime_error("not yet");
    }
    static inline int attempts = 0;
};

/// Looks for itself in its destructor, which throws.
struct Clinging
{
    static Clinging &getInstance() { return LkSingleton<Clinging>::getInstance(); }
    ~Clinging() noexcept(false)
    {
        foundItself = &getInstance() == this;
        throw std::runtime_error("stays");
    }
    static inline bool foundItself = false;
};

/// Has a constructor that waits until the test lets it continue.
struct Slow
{
    Slow()
    {
        ++made;
        begun.release();
        mayEnd.acquire();
    }
    static inline int made = 0;
    static inline std::binary_semaphore begun{0};
    static inline std::binary_semaphore mayEnd{0};
};

} // namespace ZvTest

template <int Number>
struct Zv::LkSingletonCreator<ZvTest::Single<Number>>
{
    static ZvTest::Single<Number> *create() { return new ZvTest::Single<Number>; }
};

ZV_DEFINE_SINGLETON(ZvTest::Interface, ZvTest::Implementation);
ZV_DEFINE_SINGLETON(ZvTest::Inner, ZvTest::Inner);
ZV_DEFINE_SINGLETON(ZvTest::Outer, ZvTest::Outer);
ZV_DEFINE_SINGLETON(ZvTest::Failing, ZvTest::Failing);
ZV_DEFINE_SINGLETON(ZvTest::Slow, ZvTest::Slow);
ZV_DEFINE_SINGLETON(ZvTest::Clinging, ZvTest::Clinging);

namespace ZvTest {
namespace {

// A singleton is made once in a process, so a repeated run of a test is skipped.
#define ONCE_IN_A_PROCESS()                                                                        \
    static bool isRepeated = false;                                                                \
    if (std::exchange(isRepeated, true))                                                           \
    GTEST_SKIP() << "done in this process"

TEST(LkSingleton, IsMadeAtFirstUse)
{
    ONCE_IN_A_PROCESS();
    using S = Single<1>;
    EXPECT_EQ(LkSingleton<S>::getState(), LkSingleton<S>::UNINITIALIZED);
    LkSingleton<S>::checkState();
    EXPECT_EQ(S::made, 0);
    S &first = S::getInstance();
    EXPECT_EQ(S::made, 1);
    EXPECT_EQ(&S::getInstance(), &first);
    EXPECT_EQ(S::made, 1);
    EXPECT_EQ(LkSingleton<S>::getState(), LkSingleton<S>::INITIALIZED);
    LkSingleton<S>::checkState();
    LkSingleton<S>::init();
    EXPECT_EQ(S::made, 1) << "made again";
}

TEST(LkSingleton, DestroyedOneIsNeverMadeAgain)
{
    ONCE_IN_A_PROCESS();
    using S = Single<2>;
    S::getInstance();
    LkSingleton<S>::destroy();
    EXPECT_EQ(S::destroyed, 1);
    EXPECT_EQ(LkSingleton<S>::getState(), LkSingleton<S>::DESTROYED);
    LkSingleton<S>::checkState();
    EXPECT_EQ(failedAssertion([] { LkSingleton<S>::init(); }), "_state == UNINITIALIZED");
    EXPECT_EQ(failedAssertion([] { LkSingleton<S>::destroy(); }),
              "LkSingleton<T>::_state != LkSingleton<T>::DESTROYED");
    EXPECT_EQ(S::made, 1);
    EXPECT_EQ(S::destroyed, 1);
}

TEST(LkSingleton, FindsItselfUntilItsEndWhichMayThrow)
{
    ONCE_IN_A_PROCESS();
    Clinging::getInstance();
    EXPECT_THROW(LkSingleton<Clinging>::destroy(), std::runtime_error);
    EXPECT_TRUE(Clinging::foundItself);
    EXPECT_EQ(LkSingleton<Clinging>::getState(), LkSingleton<Clinging>::DESTROYED);
    LkSingleton<Clinging>::checkState();
    EXPECT_EQ(elsewhere([] { return failedAssertion([] { LkSingleton<Clinging>::destroy(); }); }),
              "LkSingleton<T>::_state != LkSingleton<T>::DESTROYED")
        << "the creation lock was kept";
}

TEST(LkSingleton, DestroyedBeforeItsFirstUseIsNeverMade)
{
    ONCE_IN_A_PROCESS();
    using S = Single<3>;
    LkSingleton<S>::destroy();
    EXPECT_EQ(LkSingleton<S>::getState(), LkSingleton<S>::DESTROYED);
    LkSingleton<S>::checkState();
    EXPECT_EQ(failedAssertion([] { LkSingleton<S>::init(); }), "_state == UNINITIALIZED");
#ifndef __SANITIZE_ADDRESS__ // UBSan, which runs with it, rightly reports a null reference
    EXPECT_NO_THROW(static_cast<void>(S::getInstance()));
    EXPECT_EQ(LkSingleton<S>::getState(), LkSingleton<S>::DESTROYED);
#endif
    EXPECT_EQ(S::made, 0);
    EXPECT_EQ(S::destroyed, 0);
}

/// Lets threads use a singleton for the first time at the same time.
template <int Number>
void race()
{
    using S = Single<Number>;
    constexpr int THREADS = 4;
    std::counting_semaphore<THREADS> start(0);
    std::vector<S *> seen(THREADS);
    {
        std::vector<Joined> threads;
        for (S *&mine : seen)
            threads.emplace_back([&start, &mine] {
                start.acquire();
                mine = &S::getInstance();
            });
        start.release(THREADS);
    }
    EXPECT_EQ(S::made, 1);
    for (S *mine : seen)
        EXPECT_EQ(mine, seen.front());
}

TEST(LkSingleton, IsOneObjectForAllThreadsThatRaceForIt)
{
    ONCE_IN_A_PROCESS();
    [&]<int... Numbers>(std::integer_sequence<int, Numbers...>)
    {
        (race<100 + Numbers>(), ...);
    }
    (std::make_integer_sequence<int, 50>());
}

TEST(LkSingleton, TheLoserOfTheRaceWaitsAndFindsTheObject)
{
    ONCE_IN_A_PROCESS();
    Slow *first = nullptr;
    Slow *second = nullptr;
    std::thread winner([&] { first = &LkSingleton<Slow>::getInstance(); });
    Slow::begun.acquire();
    EXPECT_EQ(LkSingleton<Slow>::getState(), LkSingleton<Slow>::UNINITIALIZED);
    std::binary_semaphore isComing(0);
    std::thread loser([&] {
        isComing.release();
        second = &LkSingleton<Slow>::getInstance();
    });
    isComing.acquire();
    Slow::mayEnd.release();
    winner.join();
    loser.join();
    EXPECT_EQ(Slow::made, 1);
    EXPECT_EQ(first, second);
}

TEST(LkSingleton, CreatesWhatItsOwnerSays)
{
    EXPECT_EQ(Interface::getInstance().name(), "implementation");
}

TEST(LkSingleton, SingletonsNestInTheOrderOfConstruction)
{
    EXPECT_EQ(LkSingleton<Outer>::getInstance().value, 43);
    EXPECT_EQ(LkSingleton<Inner>::getState(), LkSingleton<Inner>::INITIALIZED);
}

TEST(LkSingleton, AConstructorThatThrowsLeavesTheWayFreeForAnother)
{
    ONCE_IN_A_PROCESS();
    EXPECT_THROW(LkSingleton<Failing>::getInstance(), std::runtime_error);
    EXPECT_EQ(LkSingleton<Failing>::getState(), LkSingleton<Failing>::UNINITIALIZED);
    elsewhere([] { return &LkSingleton<Failing>::getInstance(); });
    EXPECT_EQ(LkSingleton<Failing>::getState(), LkSingleton<Failing>::INITIALIZED);
}

TEST(LkSingleton, NamesItsStates)
{
    using S = LkSingleton<Inner>;
    EXPECT_EQ(S::UNINITIALIZED, 0);
    EXPECT_EQ(S::INITIALIZED, 1);
    EXPECT_EQ(S::DESTROYED, 2);
    EXPECT_STREQ(S::getText(S::UNINITIALIZED), "UNINITIALIZED");
    EXPECT_STREQ(S::getText(S::INITIALIZED), "INITIALIZED");
    EXPECT_STREQ(S::getText(S::DESTROYED), "DESTROYED");
    int const volatile unknown = 3;
    EXPECT_THROW(S::getText(static_cast<S::State>(unknown)), ProgramAborted);
}

TEST(LkInitMutexWindows, RefusesANameThatDoesNotFitBeforeItAsksTheSystem)
{
    // Without the base text, the number and the limits of the assertion.
    std::string const fits(260 - 1 - 12 - 12 - 1, 'x');
    std::string const tooLong = fits + "x";
    Detail::releaseInitMutex(Detail::acquireInitMutex(fits.c_str()));
    EXPECT_EQ(
        failedAssertion([&] { Detail::acquireInitMutex(tooLong.c_str()); }),
        "::strlen( MUTEX_BASE_NAME ) + PID_LEN + ::strlen( ZV_TYPE_NAME( Id ) ) < MAX_PATH - 1");
}

TEST(LkInitMutexWindows, IsKnownToTheSystemByTheTypeAndTheProcess)
{
    ZvPlatform::Handle const mutex = Detail::acquireInitMutex("named");
    char name[260];
    std::snprintf(name, sizeof name, "LkSingleton named%12ld",
                  static_cast<long>(::GetCurrentProcessId()));
    HANDLE const same = ::CreateMutexA(NULL, FALSE, name);
    EXPECT_EQ(::GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    EXPECT_EQ(elsewhere([&] { return ::WaitForSingleObject(same, 0); }), DWORD{WAIT_TIMEOUT});
    Detail::releaseInitMutex(mutex);
    EXPECT_TRUE(::CloseHandle(same));
}

TEST(LkInitMutexWindows, AnAbandonedOneIsReportedOnceAndCanBeTakenByOthers)
{
    std::thread([] { static_cast<void>(Detail::acquireInitMutex("lost")); }).join();
    EXPECT_THROW(Detail::acquireInitMutex("lost"), ExSysErrorWindows);
    char name[260];
    std::snprintf(name, sizeof name, "LkSingleton lost%12ld",
                  static_cast<long>(::GetCurrentProcessId()));
    HANDLE const same = ::CreateMutexA(NULL, FALSE, name);
    EXPECT_EQ(elsewhere([&] {
                  DWORD const answer = ::WaitForSingleObject(same, 0);
                  if (answer == WAIT_OBJECT_0)
                      ::ReleaseMutex(same);
                  return answer;
              }),
              DWORD{WAIT_OBJECT_0});
    EXPECT_TRUE(::CloseHandle(same));
}

TEST(LkInitMutexWindows, ReplacesBackslashesInTheName)
{
    ZvPlatform::Handle const mutex = Detail::acquireInitMutex("a\\b");
    std::binary_semaphore isComing(0);
    bool isReleased = false;
    std::thread other([&] {
        isComing.release();
        ZvPlatform::Handle const same = Detail::acquireInitMutex("a/b");
        EXPECT_TRUE(isReleased);
        Detail::releaseInitMutex(same);
    });
    isComing.acquire();
    isReleased = true;
    Detail::releaseInitMutex(mutex);
    other.join();
}

} // namespace
} // namespace ZvTest

// A class in a namespace that knows nothing of the library.

namespace studio {

class Clock
{
public:
    static Clock &getInstance();
    virtual ~Clock() = default;
    virtual char const *getKind() const = 0;
};

} // namespace studio

ZV_DECLARE_SINGLETON(studio::Clock);

namespace studio {

class QuartzClock : public Clock
{
public:
    char const *getKind() const override { return "quartz"; }
};

TEST(LkSingleton, ServesAClassInANamespaceOfItsOwn)
{
    EXPECT_STREQ(Clock::getInstance().getKind(), "quartz");
    EXPECT_EQ(&Clock::getInstance(), &Zv::LkSingleton<Clock>::getInstance());
}

} // namespace studio

ZV_DEFINE_SINGLETON(studio::Clock, studio::QuartzClock);
