#include "zvbase/traceEvents.h"

#include "testing/allocations.h"
#include "testing/childProcess.h"
#include "testing/traceFile.h"
#include "zvbase/logTestUtil.h"
#include "zvbase/services.h"
#include "zvbase/traceJson.private.h"
#include "zvbase/traceRing.private.h"
#include "zvbase/traceSession.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <thread>

#ifndef _WIN32
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace ZvTest {

using namespace Zv;

namespace {

class TraceEventsTest : public testing::Test
{
protected:
    ~TraceEventsTest() override { std::filesystem::remove(_path); }

    std::string const _path =
        (std::filesystem::temp_directory_path() /
         ("zv_traceEvents_" + std::to_string(::GetCurrentProcessId()) + ".json"))
            .string();
};

void expectFailure(std::string const &path, std::string const &text)
{
    try {
        TraceSession const session(path);
        ADD_FAILURE();
    } catch (TraceEx::ExFile const &failure) {
        EXPECT_EQ(failure.getReason(), text);
    }
}

TEST_F(TraceEventsTest, AreOnDuringASession)
{
    EXPECT_FALSE(TraceEvents::isOn());
    {
        TraceSession session(_path);
        EXPECT_TRUE(TraceEvents::isOn());
        session.stop();
        EXPECT_FALSE(TraceEvents::isOn());
        session.stop();
    }
    {
        TraceSession const session(_path);
        EXPECT_TRUE(TraceEvents::isOn());
    }
    EXPECT_FALSE(TraceEvents::isOn());
}

TEST_F(TraceEventsTest, AnEmptySessionNamesTheProcess)
{
    TraceSession(_path, {.processName = "a \"show\""}).stop();
    TracedEvents const events(_path);
    EXPECT_EQ(events.processName(), "a \"show\"");
    EXPECT_TRUE(events.all().empty());
}

TEST_F(TraceEventsTest, EachKindHasItsForm)
{
    TraceSession session(_path);
    {
        TraceEvents::Slice outer("test", "outer", "some \\ \"detail\"\n");
        outer.setValue("size", -3);
        TraceEvents::Slice const inner("test", "inner");
        EXPECT_TRUE(inner.isRecorded());
        TraceEvents::instant("test", "instant", "why", 7);
        TraceEvents::counter("test", "counter", 5);
    }
    session.stop();

    TracedEvents const events(_path);
    events.expectNested();
    ASSERT_EQ(events.all().size(), 4u);
    TracedEvent const outer = events.find("test", "outer").at(0);
    TracedEvent const inner = events.find("test", "inner").at(0);
    TracedEvent const instant = events.find("test", "instant").at(0);
    TracedEvent const counter = events.find("test", "counter").at(0);
    EXPECT_EQ(outer.phase, 'X');
    EXPECT_EQ(outer.detail(), "some \\ \"detail\"\n");
    EXPECT_EQ(outer.value("size"), -3);
    EXPECT_EQ(inner.phase, 'X');
    EXPECT_TRUE(inner.args.empty());
    EXPECT_LE(outer.begin, inner.begin);
    EXPECT_LE(inner.end(), outer.end() + TracedEvents::ROUNDING);
    EXPECT_EQ(instant.phase, 'i');
    EXPECT_EQ(instant.detail(), "why");
    EXPECT_EQ(instant.value(), 7);
    EXPECT_EQ(counter.phase, 'C');
    EXPECT_EQ(counter.value(), 5);
    for (TracedEvent const &event : events.all())
        EXPECT_EQ(event.thread, outer.thread);
}

TEST_F(TraceEventsTest, MomentsAreMicrosecondsOfTheClock)
{
    auto const now = [] {
        LARGE_INTEGER ticks, frequency;
        ::QueryPerformanceCounter(&ticks);
        ::QueryPerformanceFrequency(&frequency);
        return static_cast<double>(ticks.QuadPart) / static_cast<double>(frequency.QuadPart) * 1e6;
    };
    TraceSession session(_path);
    double const before = now();
    TraceEvents::instant("test", "now");
    double const after = now();
    session.stop();
    TracedEvent const event = TracedEvents(_path).find("test").at(0);
    EXPECT_GE(event.begin, before - 1); // a reading of both clocks may be so much apart
    EXPECT_LE(event.begin, after + 1);
}

TEST_F(TraceEventsTest, NothingIsRecordedWithoutASession)
{
    TraceEvents::Slice const slice("test", "slice");
    EXPECT_FALSE(slice.isRecorded());
    TraceEvents::instant("test", "early");
    TraceSpan span;
    span.begin("test", "span", "track");
    std::optional<TraceEvents::Slice> early(std::in_place, "test", "early");
    TraceSession session(_path);
    span.end();
    early.reset();
    session.stop();
    TraceEvents::instant("test", "late");
    TraceSession(_path).stop();
    EXPECT_TRUE(TracedEvents(_path).all().empty());
}

TEST_F(TraceEventsTest, WhatBeganInAnEarlierSessionIsLeftOut)
{
    std::optional<TraceEvents::Slice> slice;
    TraceSpan span;
    TraceFlow flow;
    {
        TraceSession const former(_path);
        slice.emplace("test", "slice");
        span.begin("test", "span", "track");
        TraceEvents::Slice sending("test", "send");
        flow.startIn(sending);
    }
    TraceSession session(_path);
    slice.reset();
    span.end();
    flow.end();
    session.stop();
    TracedEvents const events(_path);
    EXPECT_EQ(events.expectWholeFlows(), 0u);
    EXPECT_TRUE(events.find("test", "slice").empty());
    EXPECT_TRUE(events.find("test", "span").empty());
}

TEST_F(TraceEventsTest, ASpanMayEndOnAnotherThreadAndHasATrack)
{
    TraceSession session(_path);
    TraceSpan step;
    step.begin("device", "start", "camera", "why");
    std::thread([&] { step.end(); }).join();
    step.end();
    session.stop();
    TracedEvents const events(_path);
    ASSERT_EQ(events.all().size(), 1u);
    EXPECT_EQ(events.nameOf(events.all()[0].thread), "camera");
    EXPECT_EQ(events.all()[0].name, "start");
    EXPECT_EQ(events.all()[0].detail(), "why");
}

TEST_F(TraceEventsTest, SpansThatOverlapAreInDifferentRows)
{
    TraceSession session(_path);
    TraceSpan first, second, third;
    first.begin("device", "first", "camera");
    second.begin("device", "second", "camera");
    first.end();
    second.end();
    third.begin("device", "third", "camera");
    third.end();
    session.stop();
    TracedEvents const events(_path);
    events.expectNested();
    long const row = events.find("device", "first").at(0).thread;
    EXPECT_NE(events.find("device", "second").at(0).thread, row);
    EXPECT_EQ(events.find("device", "third").at(0).thread, row);
    for (auto const &[thread, name] : events.threads())
        EXPECT_EQ(name, "camera");
    EXPECT_EQ(events.threads().size(), 2u);
}

TEST_F(TraceEventsTest, ASpanWithoutAnEndIsMarked)
{
    TraceSession session(_path);
    TraceSpan span;
    span.begin("device", "start", "camera");
    session.stop();
    TracedEvents const events(_path);
    ASSERT_EQ(events.all().size(), 1u);
    EXPECT_TRUE(events.all()[0].args.at("unfinished").getBool());
}

TEST_F(TraceEventsTest, AFlowLeadsThroughThreads)
{
    TraceSession session(_path);
    TraceFlow flow;
    {
        TraceEvents::Slice slice("test", "send");
        flow.startIn(slice);
        flow.startIn(slice);
    }
    std::thread([&] {
        TraceEvents::Slice slice("test", "receive");
        flow.passThrough(slice);
    }).join();
    flow.end();
    flow.end();
    session.stop();
    TracedEvents const events(_path);
    EXPECT_EQ(events.expectWholeFlows(), 1u);
    std::string phases;
    for (TracedEvent const &event : events.find("test", "flow"))
        phases += event.phase;
    EXPECT_EQ(phases, "stf");
}

TEST_F(TraceEventsTest, AFlowEndsWithItsObjectAndACopyHasNone)
{
    TraceSession session(_path);
    {
        TraceFlow flow;
        TraceEvents::Slice slice("test", "send");
        flow.startIn(slice);
        TraceFlow const copy(flow);
    }
    session.stop();
    EXPECT_EQ(TracedEvents(_path).expectWholeFlows(), 1u);
}

TEST_F(TraceEventsTest, ThreadsHaveTheirNamesInEachSession)
{
    std::thread([&] {
        TraceEvents::nameThread("a \"thread\" with a long, long name");
        for (int i = 0; i < 2; ++i) {
            TraceSession session(_path);
            TraceEvents::instant("test", "x");
            TraceEvents::instant("test", "y");
            session.stop();
            TracedEvents const events(_path);
            ASSERT_EQ(events.threads().size(), 1u);
            EXPECT_EQ(events.threads().begin()->second, "a \"thread\" with a long, long na");
            EXPECT_EQ(events.threads().begin()->first, events.all().at(0).thread);
        }
    }).join();
}

TEST_F(TraceEventsTest, AThreadHasANumberThatNoEarlierThreadHad)
{
    TraceSession session(_path);
    for (std::string const name : {"first", "second", "third"})
        std::thread([&] {
            TraceEvents::nameThread(name);
            TraceEvents::instant("test", "x", name);
        }).join();
    session.stop();
    TracedEvents const events(_path);
    EXPECT_EQ(events.threads().size(), 3u);
    for (TracedEvent const &event : events.all())
        EXPECT_EQ(events.nameOf(event.thread), event.detail());
}

TEST_F(TraceEventsTest, LongTextsAreCut)
{
    TraceSession session(_path);
    std::string const letters(300, 'x');
    TraceSpan span;
    span.begin("test", "span", letters, letters);
    span.end();
    TraceEvents::instant("test", "instant", "\xC3" + std::string(TraceEvents::TEXT_CAPACITY, 'y'));
    session.stop();
    TracedEvents const events(_path);
    TracedEvent const cut = events.find("test", "span").at(0);
    EXPECT_EQ(events.nameOf(cut.thread), letters.substr(0, TraceEvents::TRACK_CAPACITY));
    EXPECT_EQ(cut.detail(),
              letters.substr(0, TraceEvents::TEXT_CAPACITY - TraceEvents::TRACK_CAPACITY));
    EXPECT_EQ(events.find("test", "instant").at(0).detail(),
              "\uFFFD" + std::string(TraceEvents::TEXT_CAPACITY - 1, 'y'));
}

TEST_F(TraceEventsTest, ALockWaitIsRecordedIfItIsLong)
{
    for (double const limit : {1000.0, 0.0}) {
        TraceSession session(_path, {.lockWaitLimit = limit});
        {
            TraceEvents::LockWait const wait("my lock");
        }
        session.stop();
        std::vector<TracedEvent> const waits = TracedEvents(_path).find("lock", "wait");
        ASSERT_EQ(waits.size(), limit == 0 ? 1u : 0u);
        for (TracedEvent const &wait : waits)
            EXPECT_EQ(wait.detail(), "my lock");
    }
}

TEST_F(TraceEventsTest, RecordingAllocatesNothing)
{
    TraceSession const session(_path);
    AllocationCount const allocations;
    {
        TraceEvents::Slice slice("test", "slice", "detail");
        TraceFlow flow;
        flow.startIn(slice);
        TraceEvents::instant("test", "instant");
        TraceSpan span;
        span.begin("test", "span", "track");
    }
    EXPECT_EQ(allocations.get(), 0);
}

TEST_F(TraceEventsTest, OneSessionAtATime)
{
    TraceSession const session(_path);
    try {
        TraceSession const second(_path + "2");
        ADD_FAILURE();
    } catch (TraceEx const &failure) {
        EXPECT_STREQ(failure.getReason(), "The trace of events is on already.");
    }
    EXPECT_FALSE(std::filesystem::exists(_path + "2"));
    EXPECT_TRUE(TraceEvents::isOn());
}

TEST_F(TraceEventsTest, AFileThatCannotBeMadeIsRefused)
{
    std::string const path = _path + "/no/folder";
    expectFailure(path, "The trace of events \"" + path +
                            "\" cannot be written: No such file or directory");
    TraceSession(_path).stop(); // the refused one has left nothing behind
}

/// Many threads record, start and stop at the same time.
TEST_F(TraceEventsTest, SessionsStartAndStopWhileThreadsRecord)
{
    std::atomic<bool> isOver = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            while (!isOver) {
                TraceEvents::Slice slice("test", "slice", "some text");
                TraceFlow flow;
                flow.startIn(slice);
                TraceSpan span;
                span.begin("test", "span", "track");
            }
        });
    constexpr int NB_SESSIONS = 10;
    for (int i = 0; i < NB_SESSIONS; ++i) {
        TraceSession session(_path);
        session.stop();
        TracedEvents const events(_path);
        if (i == NB_SESSIONS - 1)
            events.expectNested();
    }
    isOver = true;
    for (std::thread &thread : threads)
        thread.join();
}

TEST_F(TraceEventsTest, LostEventsAreCountedInTheFile)
{
    TraceSession session(_path);
    constexpr std::size_t NB = 50 * TraceSession::CAPACITY;
    for (std::size_t i = 0; i < NB; ++i)
        TraceEvents::instant("test", "x");
    session.stop();
    TracedEvents const events(_path);
    std::uint64_t const nbLost = session.getNbLost();
    EXPECT_EQ(events.find("test", "x").size() + nbLost, NB);
    std::vector<TracedEvent> const notes = events.find("trace", "lost events");
    EXPECT_EQ(notes.empty() ? 0u : static_cast<std::uint64_t>(notes.back().value()), nbLost);
}

TEST_F(TraceEventsTest, NoEventCrossesTheEndOfAPage)
{
    constexpr std::size_t PAGE = 4096;
    constexpr std::size_t NB = 2000;
    TraceSession session(_path);
    for (std::size_t i = 0; i < NB; ++i)
        TraceEvents::instant("test", "x", std::string(i % 80, i % 3 ? 'a' : '\1'));
    session.stop();
    ASSERT_EQ(session.getNbLost(), 0u);
    EXPECT_EQ(TracedEvents(_path).find("test", "x").size(), NB);
    std::string const text = readFile(_path);
    ASSERT_GT(text.size(), 20 * PAGE);
    std::size_t nbBefore = 0;
    for (std::size_t end = PAGE; end < text.size(); end += PAGE) {
        std::size_t const nb = Json::parse(text.substr(0, end) + ']').getArray().size();
        EXPECT_GT(nb, nbBefore + 10) << end;
        nbBefore = nb;
    }
}

TEST_F(TraceEventsTest, AnEventThatIsLargerThanAPageIsWritten)
{
    std::string const name(10'000, 'n');
    TraceSession session(_path, {.processName = name});
    TraceEvents::instant("test", "x");
    session.stop();
    TracedEvents const events(_path);
    EXPECT_EQ(events.processName(), name);
    EXPECT_EQ(events.find("test", "x").size(), 1u);
}

// ---- The ring

TEST(TraceRing, DropsTheNewestIfItIsFull)
{
    TraceRing ring(4);
    std::uint64_t position = 0;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 4; ++i) {
            TraceRecord * const record = ring.claim(position);
            ASSERT_NE(record, nullptr);
            record->value = round * 4 + i;
            ring.publish(*record, position);
        }
        EXPECT_EQ(ring.claim(position), nullptr);
        EXPECT_EQ(ring.getNbLost(), static_cast<std::uint64_t>(round + 1));
        for (int i = 0; i < 4; ++i) {
            ASSERT_NE(ring.getFront(), nullptr);
            EXPECT_EQ(ring.getFront()->value, round * 4 + i);
            ring.pop();
        }
        EXPECT_EQ(ring.getFront(), nullptr);
    }
}

TEST(TraceRing, APlaceThatIsWithdrawnIsNeverUsedAgain)
{
    TraceRing ring(4);
    std::uint64_t slow = 0, position = 0;
    TraceRecord * const slowRecord = ring.claim(slow);
    TraceRecord * const next = ring.claim(position);
    ring.publish(*next, position);
    EXPECT_EQ(ring.getFront(), nullptr);
    ring.withdrawFront();
    EXPECT_EQ(ring.getNbLost(), 1u);
    EXPECT_EQ(ring.getFront(), next);
    ring.pop();
    ring.withdrawFront(); // there is none
    EXPECT_EQ(ring.getNbLost(), 1u);
    ring.publish(*slowRecord, slow); // too late
    for (int i = 0; i < 20; ++i) {
        TraceRecord * const record = ring.claim(position);
        ASSERT_NE(record, nullptr);
        EXPECT_NE(record, slowRecord);
        EXPECT_EQ(ring.getFront(), nullptr);
        ring.publish(*record, position);
        ASSERT_EQ(ring.getFront(), record);
        ring.pop();
    }
    for (int i = 0; i < 3; ++i) {
        ASSERT_NE(ring.claim(position), nullptr);
    }
    EXPECT_EQ(ring.claim(position), nullptr);
}

TEST(TraceRing, ARecordThatIsWholeIsNotWithdrawn)
{
    TraceRing ring(4);
    std::uint64_t position = 0;
    TraceRecord * const record = ring.claim(position);
    ring.publish(*record, position);
    ring.withdrawFront();
    EXPECT_EQ(ring.getFront(), record);
    EXPECT_EQ(ring.getNbLost(), 0u);
}

TEST(TraceJson, TextsAreEscaped)
{
    EXPECT_EQ(TraceJson::quote("a\"\\\x01\x1F\x7F/"), R"("a\"\\\u0001\u001f\u007f/")");
    EXPECT_EQ(TraceJson::quote("\u00E4\u20AC\U0001F600"), "\"\u00E4\u20AC\U0001F600\"");
    // Overlong, surrogate, too large, cut, alone.
    for (std::string const bytes :
         {"\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF0\x80\x80\x80", "\xF4\x90\x80\x80",
          "\xE2\x82", "\xF0\x9F\x98", "\x80", "\xFF"}) {
        std::string expected;
        for (std::size_t i = 0; i < bytes.size(); ++i)
            expected += "\uFFFD";
        EXPECT_EQ(TraceJson::quote(bytes), '"' + expected + '"');
    }
}

#ifndef _WIN32

// ---- Files that are no regular files, failures, other ends of the process

TEST_F(TraceEventsTest, AFullDiskIsReported)
{
    TraceSession session("/dev/full");
    TraceEvents::instant("test", "x");
    try {
        session.stop();
        ADD_FAILURE();
    } catch (TraceEx::ExFile const &failure) {
        EXPECT_STREQ(failure.getReason(), "The trace of events \"/dev/full\" cannot be written: "
                                          "No space left on device");
    }
    EXPECT_FALSE(TraceEvents::isOn());
}

/// Limits the size of the files that this process writes.
class FileLimit
{
public:
    explicit FileLimit(rlim_t bytes) : _action(std::signal(SIGXFSZ, SIG_IGN))
    {
        ::getrlimit(RLIMIT_FSIZE, &_former);
        rlimit const limit = {bytes, _former.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileLimit()
    {
        ::setrlimit(RLIMIT_FSIZE, &_former);
        std::signal(SIGXFSZ, _action);
    }

private:
    void (*_action)(int);
    rlimit _former{};
};

TEST_F(TraceEventsTest, TheFileIsCompleteAfterAFailureInTheMiddle)
{
    for (rlim_t const size : {3000, 3001, 4000}) {
        FileLimit const limit(size);
        TraceSession session(_path);
        for (int i = 0; i < 5; ++i) {
            TraceEvents::instant("test", "x");
            while (std::filesystem::file_size(_path) < 50u * static_cast<unsigned>(i))
                std::this_thread::yield();
        }
        for (int i = 0; i < 100; ++i)
            TraceEvents::instant("test", "y");
        EXPECT_THROW(session.stop(), TraceEx::ExFile);
        TracedEvents const events(_path);
        EXPECT_GE(events.find("test", "x").size(), 1u);
        EXPECT_LE(std::filesystem::file_size(_path), size);
    }
}

TEST_F(TraceEventsTest, TheFileIsCompleteIfTheProcessEndsEarly)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "under the thread sanitizer a child of several threads can start none";
#endif
    pid_t const child = ::fork();
    if (child == 0) {
        TraceSession const session(_path);
        TraceEvents::instant("test", "x");
        for (;;)
            ::pause();
    }
    std::string text;
    while (text.find("\"x\"") == text.npos) {
        ASSERT_EQ(::waitpid(child, nullptr, WNOHANG), 0) << "the child has ended";
        std::this_thread::yield();
        text = std::filesystem::exists(_path) ? readFile(_path) : "";
    }
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_EQ(TracedEvents(_path).find("test", "x").size(), 1u);
}

TEST_F(TraceEventsTest, EventsAreWholeIfTheProcessIsKilledWhileItWrites)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "under the thread sanitizer a child of several threads can start none";
#endif
    constexpr std::size_t SIZES[] = {100'000, 300'000, 1'000'000};
    for (std::size_t const size : SIZES) {
        pid_t const child = ::fork();
        if (child == 0) {
            TraceSession const session(_path);
            for (;;)
                TraceEvents::instant("test", "x", "a detail");
        }
        std::error_code none;
        while (!std::filesystem::exists(_path) || std::filesystem::file_size(_path, none) < size) {
            ASSERT_EQ(::waitpid(child, nullptr, WNOHANG), 0) << "the child has ended";
            std::this_thread::yield();
        }
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        TracedEvents const events(Json::parse(readCutFile(_path)));
        EXPECT_GT(events.find("test", "x").size(), 500u);
        std::filesystem::remove(_path);
    }
}

TEST_F(TraceEventsTest, AForkLeavesTheFileToTheParent)
{
    TraceSession session(_path);
    TraceEvents::instant("test", "before");
    pid_t const child = ::fork();
    if (child == 0) {
        TraceEvents::instant("test", "child");
        session.stop();
        bool const isOn = TraceEvents::isOn();
        session.~TraceSession();
        ::_exit(isOn);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    TraceEvents::instant("test", "after");
    session.stop();
    TracedEvents const events(_path);
    EXPECT_EQ(events.find("test", "before").size(), 1u);
    EXPECT_EQ(events.find("test", "child").size(), 0u);
    EXPECT_EQ(events.find("test", "after").size(), 1u);
}

TEST_F(TraceEventsTest, APipeGetsItsEndWithTheSession)
{
    ASSERT_EQ(::mkfifo(_path.c_str(), 0600), 0);
    std::string text;
    std::thread reader([&] { text = readFile(_path); });
    TraceSession session(_path);
    TraceEvents::instant("test", "x");
    session.stop();
    reader.join();
    EXPECT_EQ(Json::parse(text).getArray().size(), 2u);
}

#endif

} // namespace
} // namespace ZvTest
