// Each way to misbehave, at each step, at each place of the tree: what the report says, and that the others have ended.
#include "hostileDevices.h"

#include <type_traits>

using namespace ZvTest;

namespace {

/// The device of each place in "( root ( inner ( leaf other ) sibling ) )".
constexpr char const *PLACES[] = {"root", "inner", "leaf"};
constexpr char const *DEVICES[] = {"root", "inner", "leaf", "other", "sibling"};
constexpr char const *STEPS[] = {"start",   "getLatency", "sync", "getMark",
                                 "recover", "stop",       "abort"};

struct Kind
{
    char const *name;
    Manner manner;
};
constexpr Kind KINDS[] = {{"Prompt", Manner::PROMPT},
                          {"Later", Manner::LATER},
                          {"Twice", Manner::TWICE},
                          {"Silent", Manner::SILENT},
                          {"Drops", Manner::DROPS},
                          {"Throws", Manner::THROWS},
                          {"ThrowsOther", Manner::THROWS_OTHER},
                          {"ThrowsInt", Manner::THROWS_INT},
                          {"Hangs", Manner::HANGS},
                          {"Recovers", Manner::RECOVERS},
                          {"Aborts", Manner::ABORTS},
                          {"AbortsSilent", Manner::ABORTS_SILENT}};

bool isThrow(Manner manner)
{
    return manner == Manner::THROWS || manner == Manner::THROWS_OTHER ||
           manner == Manner::THROWS_INT;
}

/// One of them: the stage, and the way through it.
template <class Device>
struct Case
{
    static constexpr bool IS_STANDARD = std::is_same_v<Device, HostileStandard>;

    Case(Kind const &ofKind, char const *atStep, char const *atPlace)
        : kind(ofKind), step(atStep), place(atPlace), name(step + " " + place)
    {
        suffix = "." + std::to_string(nextNumber++);
        stage = std::make_unique<StageOf<Device>>("( root" + suffix + " ( inner" + suffix +
                                                  " ( leaf" + suffix + " other" + suffix +
                                                  " ) sibling" + suffix + " ) )");
        (*stage)[place + suffix].manners[step] = kind.manner;
    }

    bool isQuery() const { return step == "getLatency" || step == "getMark"; }

    void run()
    {
        std::string const culprit = place + suffix;
        Device &device = (*stage)[culprit];
        stage->create();
        DevMgrSeqSupervisor &supervisor = *stage->supervisor;
        supervisor.start();
        if (step == "recover" && waitLocked()) {
            device.reportRecover();
            stage->world->waitFor("recover " + culprit);
            waitLocked();
        } else if (step == "abort" || step == "stop") {
            EXPECT_TRUE(waitLocked()) << name;
        } else {
            waitLocked();
        }
        DevSeqStatus const status = step == "abort"
                                        ? supervisor.abort(ABORT_LIMIT)
                                        : supervisor.stop(isMute() ? 0.2 : LONG, ABORT_LIMIT);
        check(status, Stage::find(status, culprit));
    }

    bool waitLocked()
    {
        try {
            return stage->supervisor->waitLocked(hasStuck() ? 0.05 : LONG);
        } catch (DevMgrEx::SeqDeviceFailed const &) {
            return false;
        }
    }
    /// Whether the device never answers.
    bool isMute() const { return kind.manner == Manner::SILENT || kind.manner == Manner::HANGS; }
    /// Whether it does not answer any more on the way to the lock, so that the others wait for it.
    bool hasStuck() const
    {
        if (step == "recover")
            return isMute() && stage->world->count("recover " + place + suffix) > 0;
        return isMute() && step != "stop" && step != "abort";
    }

    void check(DevSeqStatus const &status, DevSeqDeviceStatus const &culprit)
    {
        EXPECT_EQ(status.phase, Phase::ENDED) << name;
        for (DevSeqDeviceStatus const &device : status.devices) {
            if (device.name == culprit.name)
                continue;
            std::string const called = device.name.getChars();
            bool const hasStarted = stage->world->count("start " + called) == 1;
            EXPECT_EQ(device.end == End::STOPPED || device.end == End::ABORTED, hasStarted)
                << name << ": " << called << " " << endsOf(status);
            EXPECT_FALSE(device.hasFailed) << name << ": " << called;
            EXPECT_LE(stage->world->count("abort " + called), 1) << name << ": " << called;
            EXPECT_LE(stage->world->count("stop " + called), 1) << name << ": " << called;
        }
        bool const mayAnswer = kind.manner != Manner::HANGS;
        bool const isInAbort = step == "abort";
        Manner const manner = kind.manner;
        if (isThrow(manner) || (manner == Manner::DROPS && !isQuery())) {
            EXPECT_EQ(culprit.end, End::FAILED) << name << ": " << endsOf(status);
            EXPECT_TRUE(culprit.hasFailed) << name;
        } else if (!mayAnswer ||
                   (isInAbort && (manner == Manner::SILENT || manner == Manner::ABORTS_SILENT))) {
            EXPECT_EQ(culprit.end, End::NO_ANSWER) << name << ": " << endsOf(status);
        } else {
            EXPECT_TRUE(culprit.end == End::STOPPED || culprit.end == End::ABORTED)
                << name << ": " << endsOf(status);
        }
        if (manner == Manner::HANGS && (!IS_STANDARD || isQuery())) {
            EXPECT_EQ(culprit.call, step.c_str()) << name;
        }
        long const nbAborts = stage->world->count("abort " + place + suffix);
        EXPECT_LE(nbAborts, 1) << name;
        bool const isSound = manner == Manner::PROMPT || manner == Manner::LATER ||
                             manner == Manner::TWICE ||
                             (isQuery() && !isThrow(manner) && mayAnswer);
        if (isSound && step != "abort") {
            EXPECT_EQ(endsOf(status), "stopped stopped stopped stopped stopped") << name;
        }
        if (manner == Manner::TWICE && !isQuery() && step != "abort") {
            EXPECT_EQ(culprit.nbRefused, 1u) << name;
        }
    }

    /// All devices but those that hang have been closed once, and are not called after it.
    void finish()
    {
        stage->supervisor = nullptr;
        if (IS_STANDARD)
            stage->world->end(); // or its thread does not end
        stage->manager = nullptr;
        Lines const journal = stage->world->getJournal();
        for (char const *device : DEVICES) {
            std::string const called = device + suffix;
            long nbClosed = 0;
            for (std::string const &line : journal) {
                if (line == "close " + called)
                    ++nbClosed;
                EXPECT_FALSE(nbClosed && line != "close " + called && line.ends_with(" " + called))
                    << name << ": " << line;
            }
            // One that hangs in a call is closed when the call returns.
            bool const hangs = kind.manner == Manner::HANGS && device == place;
            EXPECT_TRUE(nbClosed == 1 || (nbClosed == 0 && hangs)) << name << ": " << called;
        }
        stage = nullptr;
    }

    static constexpr double ABORT_LIMIT = 6;
    static inline int nextNumber = 0;

    Kind kind;
    std::string step;
    std::string place;
    std::string name;
    std::string suffix;
    std::unique_ptr<StageOf<Device>> stage;
};

class Matrix : public testing::TestWithParam<Kind>
{};

// The cases of one kind run at the same time: those that hang wait for their limits.
template <class Device>
void runCases(Kind const &kind)
{
    std::vector<std::unique_ptr<Case<Device>>> cases;
    for (char const *step : STEPS)
        for (char const *place : PLACES)
            cases.push_back(std::make_unique<Case<Device>>(kind, step, place));
    std::vector<std::thread> threads;
    for (auto const &one : cases)
        threads.emplace_back([&one] { one->run(); });
    for (std::thread &thread : threads)
        thread.join();
    for (auto const &one : cases)
        one->finish();
}

TEST_P(Matrix, OfDevicesByHand)
{
    runCases<Hostile>(GetParam());
}

TEST_P(Matrix, OfStandardDevices)
{
    runCases<HostileStandard>(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Of, Matrix, testing::ValuesIn(KINDS),
                         [](auto const &kind) { return std::string(kind.param.name); });

} // namespace
