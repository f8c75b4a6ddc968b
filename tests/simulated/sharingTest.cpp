// Objects that threads share without a lock: singletons, reference-counted pointers, strings.
#include "simulated/scenario.h"

#include "resmgt/literals.h"
#include "resmgt/locks.h"
#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/smartPtrs.h"

#include <stdexcept>

using namespace Zv::Simulated;

namespace Zv {
inline namespace SharingTest {

struct Single
{
    Single()
    {
        ++made;
        step("making the singleton");
        value = 7;
    }
    static inline int made = 0;
    int value = 0;
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
        step("trying");
        if (attempts++ == 0)
            throw std::runtime_error("not yet");
    }
    static inline int attempts = 0;
};

} // namespace SharingTest

ZV_DEFINE_SINGLETON(Single, Single);
ZV_DEFINE_SINGLETON(Inner, Inner);
ZV_DEFINE_SINGLETON(Outer, Outer);
ZV_DEFINE_SINGLETON(Failing, Failing);

} // namespace Zv

using namespace Zv;

SIMULATED(SingletonIsMadeOnce, {.preemptions = 2})
{
    auto const use = [] { HOLDS(LkSingleton<Single>::getInstance().value == 7); };
    Worker first("first", use);
    Worker second("second", use);
    use();
    first.join();
    second.join();
    HOLDS(Single::made == 1);
}

SIMULATED(SingletonsNest)
{
    Worker outer("outer", [] { HOLDS(LkSingleton<Outer>::getInstance().value == 43); });
    Worker inner("inner", [] { HOLDS(LkSingleton<Inner>::getInstance().value == 42); });
    HOLDS(LkSingleton<Outer>::getInstance().value == 43);
}

SIMULATED(SingletonThatFailsIsTriedAgain)
{
    int failures = 0;
    auto const use = [&] {
        try {
            LkSingleton<Failing>::getInstance();
        } catch (std::runtime_error const &) {
            ++failures;
        }
    };
    Worker first("first", use);
    Worker second("second", use);
    use();
    first.join();
    second.join();
    HOLDS(failures == 1 && Failing::attempts == 2);
}

// ---- Reference-counted pointers.

namespace {

class Counted : public RCBase<LkCounter<long>>
{
public:
    explicit Counted(int &destroyed) : _destroyed(destroyed) {}
    ~Counted() noexcept(false) override { ++_destroyed; }
    int value = 0;

private:
    int &_destroyed;
};

class Pooled : public RCBaseWithDestroy<LkCounter<long>>
{
public:
    explicit Pooled(int &returned) : _returned(returned) {}
    ~Pooled() noexcept(false) override = default;
    void destroy() override
    {
        ++_returned;
        delete this;
    }

private:
    int &_returned;
};

} // namespace

SIMULATED(CountedPointers, {.preemptions = 2, .leaks = true})
{
    int destroyed = 0;
    {
        RCShdPtr<Counted> shared(new Counted(destroyed));
        auto const use = [&destroyed, shared]() mutable {
            RCShdPtr<Counted> copy(shared);
            RCShdPtr<Counted> moved(std::move(copy));
            HOLDS(destroyed == 0 && !moved.isUnique());
            shared = nullptr;
            moved = nullptr;
        };
        Worker first("first", use);
        Worker second("second", use);
        shared = nullptr;
    }
    HOLDS(destroyed == 1);
}

SIMULATED(LastReferenceAmongThreads, {.preemptions = 3, .leaks = true})
{
    int returned = 0;
    {
        RCShdPtr<Pooled> first(new Pooled(returned));
        RCShdPtr<Pooled> second(first);
        RCShdPtr<Pooled> third(first);
        Worker one("one", [&] { first = nullptr; });
        Worker two("two", [&] { second = nullptr; });
        third = nullptr;
    }
    HOLDS(returned == 1);
}

// ---- Strings.

SIMULATED(StringsShareTheirBody, {.preemptions = 1, .leaks = true})
{
    LiString const text("The body is shared until somebody changes it");
    auto change = [mine = text](char mark) mutable {
        LiString other(mine);
        other.replace(0, mark);
        mine += mark;
        HOLDS(other[0] == mark && mine[0] == 'T');
        HOLDS(mine.getLength() == other.getLength() + 1);
    };
    Worker first("first", [change]() mutable { change('a'); });
    Worker second("second", [change]() mutable { change('b'); });
    LiString copy(text);
    copy = "";
    copy = text;
    first.join();
    second.join();
    HOLDS(text == "The body is shared until somebody changes it");
    HOLDS(copy == text);
}

SIMULATED(EmptyStringsShareOneBody, {.preemptions = 1})
{
    auto const use = [] {
        LiString empty;
        LiString other("");
        other += "x";
        empty = other;
        HOLDS(empty == "x" && LiString().isEmpty());
    };
    Worker first("first", use);
    use();
}
