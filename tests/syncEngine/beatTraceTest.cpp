// Beats and lateness in the trace of events.

#include "resmgt/syncEngine/seGeneratorThread.private.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "scripted.h"
#include "testing/traceFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <semaphore>

namespace ZvTest {

using namespace Zv;

namespace {

/// What a client that waits in each call has seen. Its last call ends its thread.
struct Calls
{
    static constexpr int NB = 4;

    long late = 0; // beats
    int number = 0;
    std::counting_semaphore<> entered{0};
    std::counting_semaphore<> go{0};
};

class LateClient final : public SeClientThread
{
public:
    explicit LateClient(Calls &calls) : _calls(calls) {}

protected:
    bool performSync(std::uint32_t, int beats) override
    {
        ++_calls.number;
        _calls.late += beats;
        _calls.entered.release();
        _calls.go.acquire();
        return _calls.number == Calls::NB;
    }

private:
    Calls &_calls;
};

TEST(BeatTrace, ShowsTheBeatsAndTheLatenessOfAClient)
{
    constexpr int NB_BEATS = 8;
    TraceRecording recording;
    ScriptedSource source;
    auto * const generator = new SeGeneratorThread(source);
    ObjPtr<MtThread> thread = MtThreadFactory::getInstance().createThread(
        "source", ObjPtr<MtThreadProtocol>(generator), true, 0);
    Calls seen;
    auto * const client = new LateClient(seen);
    ObjPtr<SeClientThread> owned(client);
    generator->addClient("late client", owned, 1, MtThreadFactory::getInstance());
    thread->start();
    source.awaitWaits(1);
    auto beat = [&, nbWaits = 1]() mutable {
        source.beat();
        source.awaitWaits(++nbWaits);
    };
    beat();
    beat();
    for (int i = 0; i < 2; ++i) { // the first two calls count as one beat each
        seen.entered.acquire();
        seen.go.release();
    }
    beat();
    seen.entered.acquire(); // it is in its third call now, and misses beats
    for (int i = 3; i < NB_BEATS; ++i)
        beat();
    seen.go.release(2);
    seen.entered.acquire();
    // The removal waits for the client's thread, which has recorded its last call then.
    ObjPtr<SeClientThread>(generator->removeClient(client)).reset();
    TracedEvents const events = recording.stop();
    source.runFree(); // only now, because so many beats find no room in the trace
    thread.reset();

    std::vector<TracedEvent> beats, calls;
    for (TracedEvent const &event : events.find("clock", "beat"))
        (event.phase == 'i' ? beats : calls).push_back(event);
    ASSERT_GE(beats.size(), NB_BEATS - 1u); // the first one is awaited before the loop
    EXPECT_EQ(beats[0].value(), 2);
    EXPECT_TRUE(std::is_sorted(beats.begin(), beats.end(),
                               [](auto const &a, auto const &b) { return a.value() < b.value(); }));
    EXPECT_EQ(static_cast<int>(calls.size()), seen.number);
    long late = 0;
    for (TracedEvent const &call : calls) {
        EXPECT_EQ(call.phase, 'X');
        EXPECT_EQ(events.nameOf(call.thread), "late client");
        late += call.value("late");
    }
    EXPECT_EQ(late, seen.late);
    EXPECT_GT(late, 0);
}

} // namespace
} // namespace ZvTest
