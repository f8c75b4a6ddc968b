// Events that handles and guards deliver to their buffer, recorded by a state.

#include "recording.h"

#include "zvbase/rcEx.h"

#include <gtest/gtest.h>

namespace {

using namespace ZvTest;

class NotingState : public MbState
{
public:
    explicit NotingState(Log &log) : _log(log) {}

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

    Log &_log;
};

class Guards : public testing::Test
{
protected:
    ~Guards() noexcept override {}

    MbBuffer make(char const *name)
    {
        MbBuffer const buffer = MbBufferSimpleFactory(&state, manager).create(name, 8);
        EXPECT_EQ(Lines{std::string("entering ") + name}, log.take());
        return buffer;
    }

    Log log;
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
    EXPECT_EQ((Lines{"isLoaded", "prefetch a", "sync a", "asyncSync a", "free a"}), log.take());
    LkAsyncHandle &async = *handle.getImp();
    async.performSucceeded();
    async.performFailed();
    EXPECT_EQ((Lines{"asyncOpSucceeded a", "asyncOpFailed a"}), log.take());
}

TEST_F(Handles, GiveTheMutexBackAlsoWhereTheEventThrows)
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
    EXPECT_STREQ("b", first.getName());
    EXPECT_TRUE(second.isUniqueOwner());
    EXPECT_EQ(Lines{}, log.take());
    second = MbBuffer();
    EXPECT_EQ(Lines{"destroy c"}, log.take());
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
    EXPECT_EQ(name, buffer.getName());
    // The characters belong to the buffer.
    EXPECT_EQ(buffer.getName(), buffer.getName());
    EXPECT_EQ(77, buffer.getSize());
    EXPECT_EQ(7u, buffer.getAlignment().getAlignmentMask());
    EXPECT_EQ(63u, buffer.getAlignment().getOffsetMask());
    EXPECT_EQ(16u, buffer.getAlignment().getOffsetPattern());
}

TEST_F(Handles, OfNothingRefuseAllButTwoQuestions)
{
    MbBuffer null;
    EXPECT_TRUE(null.isNull());
    EXPECT_FALSE(null.isUniqueOwner());
    EXPECT_FALSE(a.isNull());
    char const expected[] = "Dereferencing a null pointer";
    EXPECT_EQ(expected, reasonOf<RCEx::ExNullPtr>([&] { null.getName(); }));
    EXPECT_EQ(expected, reasonOf<RCEx::ExNullPtr>([&] { null.getSize(); }));
    EXPECT_EQ(expected, reasonOf<RCEx::ExNullPtr>([&] { null.getAlignment(); }));
    EXPECT_EQ(expected, reasonOf<RCEx::ExNullPtr>([&] { null.isLoaded(); }));
    EXPECT_EQ(expected, reasonOf<RCEx::ExNullPtr>([&] { null.prefetch(); }));
    EXPECT_EQ(expected, reasonOf<RCEx::ExNullPtr>([&] { null.sync(); }));
    EXPECT_EQ(expected, reasonOf<RCEx::ExNullPtr>([&] { null.asyncSync(); }));
    EXPECT_EQ(expected, reasonOf<RCEx::ExNullPtr>([&] { null.free(); }));
    EXPECT_EQ(expected, reasonOf<RCEx::ExNullPtr>([&] { MbBufferRdGuardImp().getMemory(); }));
    EXPECT_EQ(expected, reasonOf<RCEx::ExNullPtr>([&] { MbBufferWrGuardImp().getMemory(); }));
}

TEST_F(ReadGuards, LockAndUnlock)
{
    {
        MbBufferRdGuardImp const guard(a);
        EXPECT_FALSE(guard.isNull());
        EXPECT_EQ(Lines{"rdlock a"}, log.take());
        MbBufferRdGuardImp const copy(guard);
        EXPECT_EQ(Lines{"rdlock a"}, log.take());
    }
    EXPECT_EQ((Lines{"unlock a", "unlock a"}), log.take());
}

TEST_F(ReadGuards, OfNothingDeliverNothing)
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
    EXPECT_EQ(Lines{}, log.take());
}

TEST_F(ReadGuards, AssignedTheirOwnBufferDeliverNothing)
{
    MbBufferRdGuardImp guard(a);
    MbBufferRdGuardImp const other(a);
    log.take();
    MbBufferRdGuardImp const &self = guard;
    guard = self;
    guard = other;
    EXPECT_EQ(Lines{}, log.take());
    EXPECT_EQ(a.getImp(), guard.getBuffer().getImp());
}

TEST_F(ReadGuards, AssignedAnotherBufferLetGoFirst)
{
    {
        MbBufferRdGuardImp guard(a);
        MbBufferRdGuardImp const other(b);
        log.take();
        guard = other;
        EXPECT_EQ((Lines{"unlock a", "rdlock b"}), log.take());
        EXPECT_EQ(b.getImp(), guard.getBuffer().getImp());
        guard = MbBufferRdGuardImp();
        EXPECT_EQ(Lines{"unlock b"}, log.take());
        EXPECT_TRUE(guard.isNull());
        guard = other;
        EXPECT_EQ(Lines{"rdlock b"}, log.take());
    }
    EXPECT_EQ((Lines{"unlock b", "unlock b"}), log.take());
}

TEST_F(ReadGuards, ThatCannotLockAreNotMadeAndHoldNoReference)
{
    state.refused = "rdlock c";
    MbBuffer const buffer = make("c");
    EXPECT_THROW(MbBufferRdGuardImp{buffer}, Failure);
    EXPECT_TRUE(buffer.isUniqueOwner());
    EXPECT_EQ(Lines{"rdlock c"}, log.take());
}

TEST_F(ReadGuards, ThatCannotBeAssignedAreNull)
{
    MbBufferRdGuardImp const other(b);
    MbBufferRdGuardImp guard(a);
    log.take();
    state.refused = "rdlock b";
    EXPECT_THROW(guard = other, Failure);
    EXPECT_EQ((Lines{"unlock a", "rdlock b"}), log.take());
    EXPECT_TRUE(guard.isNull());

    MbBufferRdGuardImp holder(a);
    log.take();
    state.refused = "unlock a";
    EXPECT_THROW(holder = other, Failure);
    EXPECT_EQ(Lines{"unlock a"}, log.take());
    EXPECT_TRUE(holder.isNull());
}

TEST_F(ReadGuards, DestructorsThrowWhatUnlockThrowsUnlessAnExceptionPasses)
{
    state.refused = "unlock a";
    EXPECT_THROW(MbBufferRdGuardImp{a}, Failure);
    EXPECT_EQ("passing", reasonOf<std::runtime_error>([&] {
                  MbBufferRdGuardImp const guard(a);
                  throw std::runtime_error("passing");
              }));
}

TEST_F(WriteGuards, LockDuplicateAndUnlock)
{
    {
        MbBufferWrGuardImp const guard(a);
        EXPECT_EQ(Lines{"wrlock a"}, log.take());
        MbBufferWrGuardImp const copy(guard);
        EXPECT_EQ(Lines{"wrdup a"}, log.take());
        MbBufferWrGuardImp assigned;
        assigned = copy;
        EXPECT_EQ(Lines{"wrdup a"}, log.take());
    }
    EXPECT_EQ((Lines{"unlock a", "unlock a", "unlock a"}), log.take());
}

TEST_F(WriteGuards, OfNothingDeliverNothing)
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
    EXPECT_EQ(Lines{}, log.take());
}

TEST_F(WriteGuards, AssignedTheirOwnBufferDeliverNothing)
{
    MbBufferWrGuardImp guard(a);
    MbBufferWrGuardImp const other(guard);
    log.take();
    MbBufferWrGuardImp const &self = guard;
    guard = self;
    guard = other;
    EXPECT_EQ(Lines{}, log.take());
}

TEST_F(WriteGuards, AssignedAnotherBufferLetGoFirst)
{
    MbBufferWrGuardImp guard(a);
    MbBufferWrGuardImp const other(b);
    log.take();
    guard = other;
    EXPECT_EQ((Lines{"unlock a", "wrdup b"}), log.take());
    guard = MbBufferWrGuardImp();
    EXPECT_EQ(Lines{"unlock b"}, log.take());
}

TEST_F(WriteGuards, ThatCannotLockAreNotMade)
{
    state.refused = "wrlock c";
    MbBuffer const buffer = make("c");
    EXPECT_THROW(MbBufferWrGuardImp{buffer}, Failure);
    EXPECT_TRUE(buffer.isUniqueOwner());
    EXPECT_EQ(Lines{"wrlock c"}, log.take());
}

TEST_F(WriteGuards, OfAWriteLockedBufferAreAllThereIsToCopy)
{
    // A read guard cannot become a write guard, and the source of a write guard holds its lock.
    static_assert(!std::is_constructible_v<MbBufferWrGuardImp, MbBufferRdGuardImp const &>);
    static_assert(!std::is_assignable_v<MbBufferWrGuardImp &, MbBufferRdGuardImp const &>);
    static_assert(!std::is_assignable_v<MbBufferWrGuardImp &, MbBuffer const &>);
}

} // namespace
