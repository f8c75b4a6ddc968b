// Loads and unloads in the trace of events.

#include "resmgt/memoryBuffers.h"
#include "testing/traceFile.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>

namespace ZvTest {

using namespace Zv;

namespace {

/// Counts the calls. Asynchronous operations succeed at once.
class CountingProtocol final : public MbProtocol
{
public:
    explicit CountingProtocol(std::map<std::string, long> &counts) : _counts(counts) {}

    void load(void *, std::uint64_t) override { count("load"); }
    void reload(void *, std::uint64_t) override { count("reload"); }
    void unload(void *, std::uint64_t) override { count("unload"); }
    void free(void *, std::uint64_t) override { count("free"); }
    void sync(void *, std::uint64_t) override { count("sync"); }
    void asyncLoad(void *, std::uint64_t, LkAsyncHandle *handle) override
    {
        count("asyncLoad");
        handle->performSucceeded();
    }
    void asyncLoadSucceeded() override { count("asyncLoadSucceeded"); }

private:
    void count(char const *call) { ++_counts[call]; }

    std::map<std::string, long> &_counts;
};

TEST(MbTrace, ShowsEachCallOfTheProtocolButUnlocks)
{
    std::map<std::string, long> counts;
    TraceRecording recording;
    {
        RCShdPtr<MbManager> const manager(
            new MbHeapManager("frames", 3000, ObjPtr<MbUnloadStrategy>(new MbUnloadLRU(0))));
        MbBufferSimpleFactory factory(MbStateMachine::getInstance(false).getInitialState(),
                                      manager);
        MbBuffer buffers[4];
        for (MbBuffer &buffer : buffers)
            buffer = factory.create("a frame", makeObj<CountingProtocol>(counts), 800,
                                    MbAlignment(7, 0, 0));
        for (int round = 0; round < 3; ++round)
            for (MbBuffer &buffer : buffers)
                MbBufferRdGuardImp const guard(buffer);
        buffers[0].free();
        buffers[0].prefetch();
    }
    TracedEvents const events = recording.stop();
    events.expectNested();
    std::map<std::string, long> shown;
    for (TracedEvent const &event : events.find("buffer")) {
        ++shown[event.name];
        EXPECT_EQ(event.phase, 'X');
        EXPECT_EQ(event.detail(), "a frame");
    }
    EXPECT_EQ(shown, counts);
    EXPECT_GT(counts["unload"], 0);
    EXPECT_EQ(counts["asyncLoad"], 1);
}

} // namespace
} // namespace ZvTest
