// Events that handles and guards deliver to their buffer, recorded by a state.

#include "recording.h"

#include "zvbase/rcEx.h"

#include <gtest/gtest.h>

namespace ZvTest {
namespace {

class NotingState : public MbState
{
public:
    explicit NotingState(Journal &log) : _log(log) {}

    void rdlock(MbBufferImp *buffer) const override { note(buffer, "rdlock"); }
    void wrlock(MbBufferImp *buffer) const override { note(buffer, "wrlock"); }
    void wrdup(MbBufferImp *buffer) const override { note(buffer, "wrdup"); }
    void prefetch(MbBufferImp *buffer) const override { note(buffer, "prefetch"); }
    void asyncSync(MbBufferImp *buffer) const override { note(buffer, "asyncSync"); }
    void sync(MbBufferImp *buffer) const override { note(buffer, "sync"); }
    void unlock(MbBufferImp *buffer) const override { note(buffer, "unlock"); }
    void unload(MbBufferImp *buffer) const override { note(buffer, "unload"); }
    void free(MbBufferImp *buffer) const override { note(buffer, "free"); }
    void destroy(MbBufferImp *buffer) const override { note(buffer, "destroy"); }
    void asyncOpSucceeded(MbBufferImp *buffer) const override { note(buffer, "asyncOpSucceeded"); }
    void asyncOpFailed(MbBufferImp *buffer) const override { note(buffer, "asyncOpFailed"); }
    bool isLoaded() const override
    {
        _log.add("isLoaded");
        return true;
    }
    MbState const *entering(MbBufferImp *buffer) const override
    {
        note(buffer, "entering");
        return nullptr;
    }
    void leaving(MbBufferImp *buffer) const override { note(buffer, "leaving"); }

    std::string refused; // the note that throws

private:
    void note(MbBufferImp *buffer, std::string const &event) const
    {
        EXPECT_TRUE(MbBufferProbe(*buffer).mutex().isLocked());
        std::string const text = event + ' ' + buffer->getName().getChars();
        _log.add(text);
        if (text == refused)
            throw Failure(text);
    }

    Journal &_log;
};

class Guards : public testing::Test
{
protected:
    ~Guards() noexcept override {}

    MbBuffer make(char const *name)
    {
        MbBuffer const buffer = MbBufferSimpleFactory(&state, manager).create(name, 8);
        EXPECT_EQ(log.take(), Lines{std::string("entering ") + name});
        return buffer;
    }

    Journal log;
    NotingState state{log};
    RCShdPtr<RecordingManager> manager{new RecordingManager(log)};
    MbBuffer const a = make("a");
    MbBuffer const b = make("b");
};

using Handles = Guards;
using ReadGuards = Guards;
using WriteGuards = Guards;

TEST_F(Handles, DeliverTheirEvents)
{
    MbBuffer handle(a);
    EXPECT_TRUE(handle.isLoaded());
    handle.prefetch();
    handle.sync();
    handle.asyncSync();
    handle.free();
    EXPECT_EQ(log.take(), (Lines{"isLoaded", "prefetch a", "sync a", "asyncSync a", "free a"}));
    LkAsyncHandle &async = *handle.getImp();
    async.performSucceeded();
    async.performFailed();
    EXPECT_EQ(log.take(), (Lines{"asyncOpSucceeded a", "asyncOpFailed a"}));
}

TEST_F(Handles, ReleaseTheMutexEvenIfTheEventThrows)
{
    state.refused = "sync a";
    MbBuffer handle(a);
    EXPECT_THROW(handle.sync(), Failure);
    EXPECT_FALSE(MbBufferProbe(a).mutex().isLocked());
}

TEST_F(Handles, ShareTheirBufferAndEndItWithTheLast)
{
    MbBuffer first = make("c");
    EXPECT_TRUE(first.isUniqueOwner());
    MbBuffer second(first);
    EXPECT_FALSE(first.isUniqueOwner());
    EXPECT_FALSE(second.isUniqueOwner());
    EXPECT_EQ(first.getImp(), second.getImp());
    first = b;
    EXPECT_STREQ(first.getName(), "b");
    EXPECT_TRUE(second.isUniqueOwner());
    EXPECT_EQ(log.take(), Lines{});
    second = MbBuffer();
    EXPECT_EQ(log.take(), Lines{"destroy c"});
}

TEST_F(Handles, OfOneBufferAndAGuardAreNoUniqueOwner)
{
    MbBuffer const handle = make("c");
    {
        MbBufferRdGuardImp const guard(handle);
        EXPECT_FALSE(handle.isUniqueOwner());
        EXPECT_EQ(handle.getImp(), guard.getBuffer().getImp());
    }
    EXPECT_TRUE(handle.isUniqueOwner());
    {
        MbBufferWrGuardImp const guard(handle);
        EXPECT_FALSE(handle.isUniqueOwner());
    }
    EXPECT_TRUE(handle.isUniqueOwner());
}

TEST_F(Handles, TellNameSizeAndAlignment)
{
    MbBuffer const buffer =
        MbBufferSimpleFactory(&state, manager).create("c", 77, MbAlignment(7, 63, 16));
    std::string const name = "c";
    EXPECT_EQ(buffer.getName(), name);
    // The characters belong to the buffer.
    EXPECT_EQ(buffer.getName(), buffer.getName());
    EXPECT_EQ(buffer.getSize(), 77);
    EXPECT_EQ(buffer.getAlignment().getAlignmentMask(), 7u);
    EXPECT_EQ(buffer.getAlignment().getOffsetMask(), 63u);
    EXPECT_EQ(buffer.getAlignment().getOffsetPattern(), 16u);
}

TEST_F(Handles, EmptyOnesRefuseAllButTwoQueries)
{
    MbBuffer null;
    EXPECT_TRUE(null.isNull());
    EXPECT_FALSE(null.isUniqueOwner());
    EXPECT_FALSE(a.isNull());
    char const expected[] = "Dereferencing a null pointer";
    EXPECT_EQ(reasonOf<RCEx::ExNullPtr>([&] { null.getName(); }), expected);
    EXPECT_EQ(reasonOf<RCEx::ExNullPtr>([&] { null.getSize(); }), expected);
    EXPECT_EQ(reasonOf<RCEx::ExNullPtr>([&] { null.getAlignment(); }), expected);
    EXPECT_EQ(reasonOf<RCEx::ExNullPtr>([&] { null.isLoaded(); }), expected);
    EXPECT_EQ(reasonOf<RCEx::ExNullPtr>([&] { null.prefetch(); }), expected);
    EXPECT_EQ(reasonOf<RCEx::ExNullPtr>([&] { null.sync(); }), expected);
    EXPECT_EQ(reasonOf<RCEx::ExNullPtr>([&] { null.asyncSync(); }), expected);
    EXPECT_EQ(reasonOf<RCEx::ExNullPtr>([&] { null.free(); }), expected);
    EXPECT_EQ(reasonOf<RCEx::ExNullPtr>([&] { MbBufferRdGuardImp().getMemory(); }), expected);
    EXPECT_EQ(reasonOf<RCEx::ExNullPtr>([&] { MbBufferWrGuardImp().getMemory(); }), expected);
}

TEST_F(ReadGuards, LockAndUnlock)
{
    {
        MbBufferRdGuardImp const guard(a);
        EXPECT_FALSE(guard.isNull());
        EXPECT_EQ(log.take(), Lines{"rdlock a"});
        MbBufferRdGuardImp const copy(guard);
        EXPECT_EQ(log.take(), Lines{"rdlock a"});
    }
    EXPECT_EQ(log.take(), (Lines{"unlock a", "unlock a"}));
}

TEST_F(ReadGuards, EmptyOnesDeliverNothing)
{
    {
        MbBufferRdGuardImp const null;
        MbBufferRdGuardImp const copy(null);
        MbBufferRdGuardImp const made{MbBuffer()};
        MbBufferRdGuardImp assigned;
        assigned = copy;
        EXPECT_TRUE(null.isNull());
        EXPECT_TRUE(copy.isNull());
        EXPECT_TRUE(made.isNull());
        EXPECT_TRUE(assigned.isNull());
        EXPECT_TRUE(copy.getBuffer().isNull());
    }
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(ReadGuards, AssignedTheirOwnBufferDeliverNothing)
{
    MbBufferRdGuardImp guard(a);
    MbBufferRdGuardImp const other(a);
    log.take();
    MbBufferRdGuardImp const &self = guard;
    guard = self;
    guard = other;
    EXPECT_EQ(log.take(), Lines{});
    EXPECT_EQ(guard.getBuffer().getImp(), a.getImp());
}

TEST_F(ReadGuards, AnAssignmentUnlocksTheFormerBufferFirst)
{
    {
        MbBufferRdGuardImp guard(a);
        MbBufferRdGuardImp const other(b);
        log.take();
        guard = other;
        EXPECT_EQ(log.take(), (Lines{"unlock a", "rdlock b"}));
        EXPECT_EQ(guard.getBuffer().getImp(), b.getImp());
        guard = MbBufferRdGuardImp();
        EXPECT_EQ(log.take(), Lines{"unlock b"});
        EXPECT_TRUE(guard.isNull());
        guard = other;
        EXPECT_EQ(log.take(), Lines{"rdlock b"});
    }
    EXPECT_EQ(log.take(), (Lines{"unlock b", "unlock b"}));
}

TEST_F(ReadGuards, ThatCannotLockAreNotMadeAndHoldNoReference)
{
    state.refused = "rdlock c";
    MbBuffer const buffer = make("c");
    EXPECT_THROW(MbBufferRdGuardImp{buffer}, Failure);
    EXPECT_TRUE(buffer.isUniqueOwner());
    EXPECT_EQ(log.take(), Lines{"rdlock c"});
}

TEST_F(ReadGuards, ThatCannotBeAssignedAreNull)
{
    MbBufferRdGuardImp const other(b);
    MbBufferRdGuardImp guard(a);
    log.take();
    state.refused = "rdlock b";
    EXPECT_THROW(guard = other, Failure);
    EXPECT_EQ(log.take(), (Lines{"unlock a", "rdlock b"}));
    EXPECT_TRUE(guard.isNull());

    MbBufferRdGuardImp holder(a);
    log.take();
    state.refused = "unlock a";
    EXPECT_THROW(holder = other, Failure);
    EXPECT_EQ(log.take(), Lines{"unlock a"});
    EXPECT_TRUE(holder.isNull());
}

TEST_F(ReadGuards, DestructorsThrowWhatUnlockThrowsUnlessAnExceptionPasses)
{
    state.refused = "unlock a";
    EXPECT_THROW(MbBufferRdGuardImp{a}, Failure);
    EXPECT_EQ(reasonOf<std::runtime_error>([&] {
                  MbBufferRdGuardImp const guard(a);
                  throw std::runtime_error("passing");
              }),
              "passing");
}

TEST_F(WriteGuards, LockDuplicateAndUnlock)
{
    {
        MbBufferWrGuardImp const guard(a);
        EXPECT_EQ(log.take(), Lines{"wrlock a"});
        MbBufferWrGuardImp const copy(guard);
        EXPECT_EQ(log.take(), Lines{"wrdup a"});
        MbBufferWrGuardImp assigned;
        assigned = copy;
        EXPECT_EQ(log.take(), Lines{"wrdup a"});
    }
    EXPECT_EQ(log.take(), (Lines{"unlock a", "unlock a", "unlock a"}));
}

TEST_F(WriteGuards, EmptyOnesDeliverNothing)
{
    {
        MbBufferWrGuardImp const null;
        MbBufferWrGuardImp const copy(null);
        MbBufferWrGuardImp const made{MbBuffer()};
        MbBufferWrGuardImp assigned;
        assigned = copy;
        EXPECT_TRUE(copy.isNull());
        EXPECT_TRUE(made.isNull());
        EXPECT_TRUE(assigned.isNull());
    }
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(WriteGuards, AssignedTheirOwnBufferDeliverNothing)
{
    MbBufferWrGuardImp guard(a);
    MbBufferWrGuardImp const other(guard);
    log.take();
    MbBufferWrGuardImp const &self = guard;
    guard = self;
    guard = other;
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(WriteGuards, AnAssignmentUnlocksTheFormerBufferFirst)
{
    MbBufferWrGuardImp guard(a);
    MbBufferWrGuardImp const other(b);
    log.take();
    guard = other;
    EXPECT_EQ(log.take(), (Lines{"unlock a", "wrdup b"}));
    guard = MbBufferWrGuardImp();
    EXPECT_EQ(log.take(), Lines{"unlock b"});
}

TEST_F(WriteGuards, ThatCannotLockAreNotMade)
{
    state.refused = "wrlock c";
    MbBuffer const buffer = make("c");
    EXPECT_THROW(MbBufferWrGuardImp{buffer}, Failure);
    EXPECT_TRUE(buffer.isUniqueOwner());
    EXPECT_EQ(log.take(), Lines{"wrlock c"});
}

TEST_F(WriteGuards, ALockedBufferCanOnlyBeCopiedThroughItsGuard)
{
    // A read guard cannot become a write guard, and the source of a write guard holds its lock.
    static_assert(!std::is_constructible_v<MbBufferWrGuardImp, MbBufferRdGuardImp const &>);
    static_assert(!std::is_assignable_v<MbBufferWrGuardImp &, MbBufferRdGuardImp const &>);
    static_assert(!std::is_assignable_v<MbBufferWrGuardImp &, MbBuffer const &>);
}

} // namespace
} // namespace ZvTest
