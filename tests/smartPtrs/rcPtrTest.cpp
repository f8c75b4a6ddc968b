#include "resmgt/smartPtrs.h"

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

struct Log
{
    int destroyed = 0;
};

template <class Counter>
struct Counted : RCBase<Counter>
{
    explicit Counted(Log &l, int v = 0) : log(&l), value(v) {}
    Counted(Counted const &) = default;
    ~Counted() noexcept(false) override { ++log->destroyed; }
    Log *log;
    int value;
};

using Shared = Counted<LkCounter<long>>;

struct Derived : Shared
{
    using Shared::Shared;
};

struct Failing : RCBase<LkCounter<long>>
{
    explicit Failing(bool f = true) : fails(f) {}
    ~Failing() noexcept(false) override
    {
        if (fails)
            throw std::runtime_error("cannot end");
    }
    bool fails;
};

template <class Counter>
class RCShdPtrOf : public testing::Test
{
protected:
    Log _log;
};
using Counters = testing::Types<LkCounter<long>, int>;
TYPED_TEST_SUITE(RCShdPtrOf, Counters);

TYPED_TEST(RCShdPtrOf, TheLastPointerDestroysTheObject)
{
    using Object = Counted<TypeParam>;
    {
        RCShdPtr<Object> a(new Object(this->_log, 7));
        EXPECT_TRUE(a.isUnique());
        {
            RCShdPtr<Object> b = a;
            EXPECT_FALSE(a.isUnique());
            EXPECT_EQ(b->value, 7);
            EXPECT_EQ(&*a, b.get());
        }
        EXPECT_TRUE(a.isUnique());
        EXPECT_EQ(this->_log.destroyed, 0);
    }
    EXPECT_EQ(this->_log.destroyed, 1);
}

TYPED_TEST(RCShdPtrOf, AssignedToItselfChangesNoCount)
{
    using Object = Counted<TypeParam>;
    RCShdPtr<Object> a(new Object(this->_log));
    RCShdPtr<Object> &same = a;
    a = same;
    EXPECT_TRUE(a.isUnique());
    a = a.get();
    EXPECT_TRUE(a.isUnique());
    a = std::move(same);
    EXPECT_TRUE(a.isUnique());
    RCShdPtr<Object> b = a;
    a = b;
    b = std::move(a);
    EXPECT_TRUE(b.isUnique());
    EXPECT_EQ(this->_log.destroyed, 0);
}

TYPED_TEST(RCShdPtrOf, AssignedNullDestroysTheOnlyObjectAtOnce)
{
    using Object = Counted<TypeParam>;
    RCShdPtr<Object> a(new Object(this->_log));
    a = nullptr;
    EXPECT_EQ(this->_log.destroyed, 1);
    EXPECT_TRUE(a.isNull());
    EXPECT_FALSE(a.isUnique());
}

TYPED_TEST(RCShdPtrOf, ACopiedObjectStartsWithoutReferences)
{
    using Object = Counted<TypeParam>;
    RCShdPtr<Object> const original(new Object(this->_log, 5));
    RCShdPtr<Object> const second = original;
    RCShdPtr<Object> const copy(new Object(*original));
    EXPECT_EQ(copy->value, 5);
    EXPECT_TRUE(copy.isUnique());
    *copy = *original;
    EXPECT_TRUE(copy.isUnique());
    EXPECT_FALSE(original.isUnique());
}

TEST(RCShdPtr, NullThrows)
{
    RCShdPtr<Shared> const null;
    for (auto const &use : {+[](RCShdPtr<Shared> const &p) { static_cast<void>(p->value); },
                            +[](RCShdPtr<Shared> const &p) { static_cast<void>(*p); }})
        try {
            use(null);
            ADD_FAILURE() << "no exception";
        } catch (RCEx::ExNullPtr const &failure) {
            EXPECT_STREQ(failure.what(), "Dereferencing a null pointer");
        }
    EXPECT_FALSE(null.isUnique());
    EXPECT_EQ(null, nullptr);
    EXPECT_FALSE(null);
}

TEST(RCShdPtr, IsOneWord)
{
    static_assert(sizeof(RCShdPtr<Shared>) == sizeof(void *));
    static_assert(sizeof(RCShdEngPtr<Shared>) == sizeof(void *));
    static_assert(sizeof(RCPvtEngPtr<Shared>) == sizeof(void *));
    static_assert(sizeof(RCProxyShdPtr<int>) == sizeof(void *));
}

TEST(RCShdPtr, MovesWithoutCounting)
{
    Log log;
    RCShdPtr<Shared> a(new Shared(log));
    RCShdPtr<Shared> b(std::move(a));
    EXPECT_TRUE(a.isNull());
    EXPECT_TRUE(b.isUnique());
    RCShdPtr<Shared> c(new Shared(log));
    c = std::move(b);
    EXPECT_EQ(log.destroyed, 1);
    EXPECT_TRUE(b.isNull());
    EXPECT_TRUE(c.isUnique());
    a.swap(c);
    EXPECT_TRUE(c.isNull());
    EXPECT_TRUE(a.isUnique());
}

TEST(RCShdPtr, ConvertsBetweenRelatedTypes)
{
    Log log;
    RCShdPtr<Derived> derived(new Derived(log));
    RCShdPtr<Shared> base = derived;
    EXPECT_FALSE(derived.isUnique());
    EXPECT_EQ(base, derived);
    RCShdPtr<Shared const> constant = base;
    EXPECT_EQ(constant.get(), base.get());
    base = nullptr;
    constant = nullptr;
    base = std::move(derived);
    EXPECT_TRUE(derived.isNull());
    EXPECT_TRUE(base.isUnique());
    static_assert(!std::is_convertible_v<RCShdPtr<Shared>, RCShdPtr<Derived>>);
}

TEST(RCShdPtr, ARawPointerMayBecomeOneMoreThanOnce)
{
    Log log;
    RCShdPtr<Shared> const a = makeShd<Shared>(log);
    {
        RCShdPtr<Shared> const again = a.get();
        EXPECT_FALSE(a.isUnique());
    }
    EXPECT_TRUE(a.isUnique());
    EXPECT_EQ(log.destroyed, 0);
}

TEST(RCShdPtr, CastsToTheDynamicType)
{
    Log log;
    RCShdPtr<Shared> const base(new Derived(log));
    RCShdPtr<Derived> const derived = rcDynamicCast<Derived>(base);
    EXPECT_EQ(derived, base);
    EXPECT_FALSE(base.isUnique());
    RCShdPtr<Shared> const other(new Shared(log));
    EXPECT_TRUE(rcDynamicCast<Derived>(other).isNull());
    EXPECT_TRUE(other.isUnique());
    EXPECT_TRUE(rcDynamicCast<Derived>(RCShdPtr<Shared>()).isNull());
}

TEST(RCShdPtr, ServesTheContainers)
{
    Log log;
    RCShdPtr<Shared> const a = makeShd<Shared>(log, 1);
    RCShdPtr<Shared> const b = makeShd<Shared>(log, 2);
    std::set<RCShdPtr<Shared>> const sorted{a, b, a};
    EXPECT_EQ(sorted.size(), 2u);
    std::unordered_set<RCShdPtr<Shared>> const hashed{a, b, a};
    EXPECT_EQ(hashed.size(), 2u);
    std::vector<RCShdPtr<Shared>> list{a};
    for (int i = 0; i < 100; ++i)
        list.push_back(b);
    EXPECT_EQ(list.back()->value, 2);
    list.clear();
    EXPECT_EQ(a < b, a.get() < b.get());
    EXPECT_EQ(log.destroyed, 0);
}

TEST(RCShdPtr, AnAssignmentTakesItsValueThoughTheOldObjectsEndThrows)
{
    RCShdPtr<Failing> const good(new Failing(false));
    {
        RCShdPtr<Failing> pointer(new Failing);
        EXPECT_THROW(pointer = good, std::runtime_error);
        EXPECT_EQ(pointer, good);
        EXPECT_FALSE(good.isUnique());
    }
    EXPECT_TRUE(good.isUnique());
    {
        RCShdPtr<Failing> pointer(new Failing);
        EXPECT_THROW(pointer = nullptr, std::runtime_error);
        EXPECT_TRUE(pointer.isNull());
    }
    {
        RCShdPtr<Failing> pointer(new Failing);
        RCShdPtr<Failing> other = good;
        EXPECT_THROW(pointer = std::move(other), std::runtime_error);
        EXPECT_EQ(pointer, good);
        EXPECT_TRUE(other.isNull());
    }
    EXPECT_TRUE(good.isUnique());
}

/// Reads its last pointer in its destructor.
struct Looking : RCBase<LkCounter<long>>
{
    ~Looking() noexcept(false) override { seen = pointer->get(); }
    RCShdPtr<Looking> const *pointer = nullptr;
    static inline Looking const *seen = nullptr;
};

/// Expects that the old object finds itself in its pointer while `assign` replaces it.
template <class Assign>
void expectThatTheOldObjectFindsItself(Assign const &assign)
{
    Looking * const old = new Looking;
    RCShdPtr<Looking> pointer(old);
    old->pointer = &pointer;
    Looking::seen = nullptr;
    assign(pointer);
    EXPECT_EQ(Looking::seen, old);
    EXPECT_NE(pointer.get(), old);
    EXPECT_TRUE(pointer.isNull() || pointer.isUnique());
    if (pointer)
        pointer->pointer = &pointer;
}

TEST(RCShdPtr, EveryAssignmentReleasesTheOldObjectBeforeItTakesTheNewOne)
{
    expectThatTheOldObjectFindsItself([](RCShdPtr<Looking> &pointer) {
        RCShdPtr<Looking> other(new Looking);
        other->pointer = &other;
        pointer = other;
        pointer->pointer = &pointer;
        Looking const * const seen = Looking::seen;
        other = nullptr;
        EXPECT_EQ(Looking::seen, seen) << "the new object lives on";
    });
    expectThatTheOldObjectFindsItself([](RCShdPtr<Looking> &pointer) { pointer = new Looking; });
    expectThatTheOldObjectFindsItself([](RCShdPtr<Looking> &pointer) { pointer = nullptr; });
    expectThatTheOldObjectFindsItself(
        [](RCShdPtr<Looking> &pointer) { pointer = makeShd<Looking>(); });
    expectThatTheOldObjectFindsItself([](RCShdPtr<Looking> &pointer) {
        RCShdPtr<Looking> other(new Looking);
        pointer = std::move(other);
        EXPECT_TRUE(other.isNull());
    });
}

struct Link : RCBase<LkCounter<long>>
{
    RCShdPtr<Link> next;
};

TEST(RCShdPtr, CanBeAssignedAMemberOfItsOldObject)
{
    RCShdPtr<Link> first(new Link);
    first->next = makeShd<Link>();
    Link * const second = first->next.get();
    first = std::move(first->next);
    EXPECT_EQ(first.get(), second);
    EXPECT_TRUE(first.isUnique());
}

TEST(RCShdPtr, CanBePassedToAStandardThread)
{
    Log log;
    RCShdPtr<Shared> const shared(new Shared(log, 3));
    int sum = 0;
    std::thread thread(std::function<void()>([shared, &sum] { sum += shared->value; }));
    thread.join();
    auto answer =
        std::async(std::launch::async, std::function<int()>([shared] { return shared->value; }));
    sum += answer.get();
    std::packaged_task<int()> task(std::function<int()>([shared] { return shared->value; }));
    task();
    sum += task.get_future().get();
    EXPECT_EQ(sum, 9);
}

TEST(RCShdPtr, APointersEndPassesOnWhatTheObjectsEndThrows)
{
    EXPECT_THROW({ RCShdPtr<Failing> pointer(new Failing); }, std::runtime_error);
}

TEST(RCShdPtr, ThreadsShareAnObject)
{
    Log log;
    {
        RCShdPtr<Shared> const shared = makeShd<Shared>(log);
        auto const copyOften = [&shared] {
            for (int i = 0; i < 20000; ++i) {
                RCShdPtr<Shared> const copy = shared;
                RCShdPtr<Shared> other;
                other = copy;
            }
        };
        std::thread a(copyOften);
        std::thread b(copyOften);
        a.join();
        b.join();
    }
    EXPECT_EQ(log.destroyed, 1);
}

// ---- engines

struct PooledEngine : RCBaseWithDestroy<LkCounter<long>>
{
    explicit PooledEngine(int &n) : nbReturns(n) {}
    int &nbReturns;

private:
    void destroy() override { ++nbReturns; }
};

TEST(RCShdEngPtr, AnObjectThatKeepsItselfMayBeTakenAgain)
{
    int nbReturns = 0;
    PooledEngine * const engine = new PooledEngine(nbReturns);
    {
        RCShdEngPtr<PooledEngine> a(engine);
        RCShdEngPtr<PooledEngine> const b = a;
        a = nullptr;
        EXPECT_EQ(nbReturns, 0);
    }
    EXPECT_EQ(nbReturns, 1);
    {
        RCShdEngPtr<PooledEngine> const again(engine);
        EXPECT_EQ(&again->nbReturns, &nbReturns);
        EXPECT_EQ(nbReturns, 1);
    }
    EXPECT_EQ(nbReturns, 2);
    delete engine;
}

template <class Counter>
struct PlainEngine : RCBaseWithDestroy<Counter>
{
    explicit PlainEngine(Log &l) : log(l) {}
    ~PlainEngine() noexcept(false) override { ++log.destroyed; }
    Log &log;
};

TEST(RCShdEngPtr, DestroyDeletesByDefault)
{
    Log log;
    {
        RCShdEngPtr<PlainEngine<int>> const a(new PlainEngine<int>(log));
        RCShdEngPtr<PlainEngine<LkCounter<long>> const> const b(
            new PlainEngine<LkCounter<long>>(log));
    }
    EXPECT_EQ(log.destroyed, 2);
    RCShdEngPtr<PlainEngine<int>> const null;
    EXPECT_THROW(static_cast<void>(null->log), RCEx::ExNullPtr);
    EXPECT_THROW(static_cast<void>(*null), RCEx::ExNullPtr);
}

TEST(RCShdEngPtr, ReportsWhetherItIsTheOnlyOne)
{
    Log log;
    RCShdEngPtr<PlainEngine<int>> null;
    EXPECT_FALSE(null.isUnique());
    RCShdEngPtr<PlainEngine<int>> first(new PlainEngine<int>(log));
    EXPECT_TRUE(first.isUnique());
    null = first;
    EXPECT_FALSE(first.isUnique());
}

TEST(RCShdEngPtr, ACopiedEngineStartsWithoutReferences)
{
    Log log;
    RCShdEngPtr<PlainEngine<int>> const first(new PlainEngine<int>(log));
    RCShdEngPtr<PlainEngine<int>> const second = first;
    {
        RCShdEngPtr<PlainEngine<int>> const copy(new PlainEngine<int>(*first));
        EXPECT_TRUE(copy.isUnique());
    }
    EXPECT_EQ(log.destroyed, 1);
}

struct TextEngine : RCBase<LkCounter<long>>
{
    explicit TextEngine(std::string t) : text(std::move(t)) {}
    TextEngine *clone() const
    {
        if (failsToClone)
            throw std::runtime_error("clone");
        return isClonable ? new TextEngine(*this) : nullptr;
    }
    std::string text;
    bool isClonable = true;
    bool failsToClone = false;
};

TEST(RCPvtEngPtr, WritingASharedEngineSeparatesIt)
{
    RCPvtEngPtr<TextEngine> mine(new TextEngine("before"));
    RCPvtEngPtr<TextEngine> const others = mine;
    EXPECT_EQ(mine, others);
    mine.write().text = "after";
    EXPECT_EQ(mine->text, "after");
    EXPECT_EQ(others->text, "before");
    EXPECT_TRUE(others.isUnique());
    EXPECT_TRUE(mine.isUnique());
}

TEST(RCPvtEngPtr, WritingAPrivateEngineCopiesNothing)
{
    TextEngine * const engine = new TextEngine("before");
    RCPvtEngPtr<TextEngine> mine(engine);
    mine.write().text = "after";
    EXPECT_EQ(mine.get(), engine);
    EXPECT_EQ((*mine).text, "after");
}

TEST(RCPvtEngPtr, ReadingASharedEngineSeparatesNothing)
{
    RCPvtEngPtr<TextEngine> const mine(new TextEngine("text"));
    RCPvtEngPtr<TextEngine> const others = mine;
    EXPECT_EQ(mine->text, (*others).text);
    EXPECT_EQ(mine, others);
    EXPECT_FALSE(mine.isUnique());
}

TEST(RCPvtEngPtr, NullPointersAndNullClonesThrow)
{
    RCPvtEngPtr<TextEngine> null;
    EXPECT_THROW(static_cast<void>(null->text), RCEx::ExNullPtr);
    EXPECT_THROW(null.write(), RCEx::ExNullPtr);
    RCPvtEngPtr<TextEngine> mine(new TextEngine("a"));
    mine.write().isClonable = false;
    RCPvtEngPtr<TextEngine> const others = mine;
    EXPECT_THROW(mine.write(), RCEx::ExNullPtr);
    EXPECT_EQ(mine, others) << "a failed write changed something";
}

TEST(RCPvtEngPtr, ACloneThatThrowsChangesNothing)
{
    RCPvtEngPtr<TextEngine> mine(new TextEngine("a"));
    mine.write().failsToClone = true;
    {
        RCPvtEngPtr<TextEngine> const others = mine;
        EXPECT_THROW(mine.write(), std::runtime_error);
        EXPECT_EQ(mine, others);
        EXPECT_EQ(mine->text, "a");
    }
    EXPECT_TRUE(mine.isUnique());
}

// ---- proxies and unowned pointers

struct Plain
{
    explicit Plain(Log &l) : log(l) {}
    ~Plain() { ++log.destroyed; }
    Log &log;
    int value = 3;
};

TEST(RCProxyShdPtr, SharesWhatDoesNotCount)
{
    Log log;
    {
        RCProxyShdPtr<Plain> a(ObjPtr<Plain>(new Plain(log)));
        RCProxyShdPtr<Plain> const b = a;
        EXPECT_FALSE(a.isUnique());
        a->value = 4;
        EXPECT_EQ((*b).value, 4);
        a = nullptr;
        EXPECT_TRUE(b.isUnique());
        EXPECT_EQ(log.destroyed, 0);
    }
    EXPECT_EQ(log.destroyed, 1);
    {
        RCProxyShdPtr<Plain> const fromProxy(new RCProxy<Plain>(new Plain(log)));
        EXPECT_EQ(fromProxy->value, 3);
    }
    EXPECT_EQ(log.destroyed, 2);
}

TEST(RCProxyShdPtr, NullThrows)
{
    RCProxyShdPtr<Plain> const null;
    EXPECT_THROW(static_cast<void>(null->value), RCEx::ExNullPtr);
    EXPECT_TRUE(RCProxyShdPtr<Plain>(ObjPtr<Plain>()).isNull());
    RCProxyShdPtr<Plain> const hollow(new RCProxy<Plain>(static_cast<Plain *>(nullptr)));
    EXPECT_THROW(static_cast<void>(hollow->value), RCEx::ExNullPtr);
}

TEST(UnownedObjPtr, DeletesNothingAndComparesByAddress)
{
    Log log;
    Plain object(log);
    Plain other(log);
    {
        UnownedObjPtr<Plain> const a(&object);
        UnownedObjPtr<Plain> const b(&object);
        UnownedObjPtr<Plain> const c(&other);
        EXPECT_EQ(a, b);
        EXPECT_NE(a, c);
        EXPECT_EQ(a < c, &object < &other);
        EXPECT_EQ(a->value, 3);
        EXPECT_EQ(&*a, &object);
        EXPECT_EQ((std::unordered_set<UnownedObjPtr<Plain>>{a, b, c}.size()), 2u);
        std::hash<UnownedObjPtr<Plain>> const hash;
        EXPECT_EQ(hash(a), hash(b));
        EXPECT_NE(hash(a), hash(c)) << "addresses differ in their hashes, too";
        EXPECT_TRUE(a);
    }
    EXPECT_EQ(log.destroyed, 0);
    UnownedObjPtr<Plain> const null;
    EXPECT_FALSE(null);
    EXPECT_EQ(null, nullptr);
    EXPECT_THROW(static_cast<void>(*null), RCEx::ExNullPtr);
}

TEST(ObjPtr, PassedByValueIsNullInTheCaller)
{
    Log log;
    ObjPtr<Plain> mine(new Plain(log));
    auto const take = [](ObjPtr<Plain> taken) { return taken->value; };
    EXPECT_EQ(take(mine), 3);
    EXPECT_TRUE(mine.isNull());
    EXPECT_EQ(log.destroyed, 1);
}

} // namespace
} // namespace ZvTest
