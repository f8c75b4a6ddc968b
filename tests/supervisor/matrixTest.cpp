// Each kind of misbehaviour, in each phase, at each place of the tree. The tests check the reports,
// and that the other devices have ended and were closed.
#include "hostileDevices.h"

#include <atomic>
#include <future>
#include <type_traits>

namespace ZvTest {

namespace {

/// The devices that misbehave, one for each kind of place in "( root ( inner ( leaf other ) sibling
/// ) )".
constexpr char const *PLACES[] = {"root", "inner", "leaf"};
constexpr char const *DEVICES[] = {"root", "inner", "leaf", "other", "sibling"};

/// A phase of a device's life, and the call in which the device misbehaves there.
struct DevicePhase
{
    char const *name;
    char const *call;
};
constexpr DevicePhase PHASES[] = {{"open", "open"}, {"start", "start"},  {"ready", "getLatency"},
                                  {"sync", "sync"}, {"lock", "getMark"}, {"recover", "recover"},
                                  {"stop", "stop"}, {"abort", "abort"},  {"close", "close"}};

/// A kind of misbehaviour. A device fails in four of these ways, hangs in two, and is slow in two.
struct Kind
{
    char const *name;
    Manner manner;
};
constexpr Kind KINDS[] = {{"Prompt", Manner::PROMPT},
                          {"Slow", Manner::SLOW},
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
static_assert(std::size(KINDS) == static_cast<std::size_t>(Manner::NB_MANNERS));

bool isThrow(Manner manner)
{
    return manner == Manner::THROWS || manner == Manner::THROWS_OTHER ||
           manner == Manner::THROWS_INT;
}

/// Returns the reason why a device cannot misbehave in this way in this phase, or null if it can.
char const *whyNot(Manner manner, std::string const &phase)
{
    bool const hasCompletion =
        phase != "open" && phase != "ready" && phase != "lock" && phase != "close";
    if (!hasCompletion && (manner == Manner::LATER || manner == Manner::SILENT ||
                           manner == Manner::DROPS || manner == Manner::ABORTS_SILENT))
        return "The call has no completion. It is answered when it returns.";
    if (phase == "open" &&
        (manner == Manner::TWICE || manner == Manner::RECOVERS || manner == Manner::ABORTS))
        return "The device has not been given a completion or a notification yet.";
    return nullptr;
}

/// One cell of the matrix: the stage and the calls of the test.
template <class Device>
struct Case
{
    static constexpr bool IS_STANDARD = std::is_same_v<Device, HostileStandard>;

    Case(Manner itsManner, DevicePhase const &inPhase, char const *atPlace)
        : manner(itsManner),
          phase(inPhase.name),
          call(inPhase.call),
          name(phase + " " + atPlace),
          suffix("." + std::to_string(nextNumber++)),
          culprit(atPlace + suffix)
    {
        stage = std::make_unique<StageOf<Device>>("( root" + suffix + " ( inner" + suffix +
                                                  " ( leaf" + suffix + " other" + suffix +
                                                  " ) sibling" + suffix + " ) )");
        (*stage)[culprit].manners[call] = manner;
    }

    void run()
    {
        if (open()) {
            checkEnds(endSequence());
            stage->supervisor = nullptr;
        }
        close();
        checkCloses();
        EXPECT_GE(stage->world->count(call + " " + culprit), 1) << name;
    }

    /// Opens the devices. Returns true if there is a sequence.
    bool open()
    {
        if (phase != "open" || manner == Manner::PROMPT) {
            stage->create();
            return true;
        }
        opening =
            std::async(std::launch::async, [this] { return thrownBy([&] { stage->create(); }); });
        if (manner == Manner::HANGS)
            return false;
        if (manner == Manner::SLOW) {
            stage->world->waitFor("open " + culprit);
            stage->world->goOn();
            EXPECT_EQ(opening.get(), "") << name;
            return true;
        }
        EXPECT_EQ(opening.get(), getThrown()) << name;
        EXPECT_EQ(thrownBy([&] { stage->create(); }), getThrown()) << name << ", tried again";
        return false;
    }

    DevSeqStatus endSequence()
    {
        DevMgrSeqSupervisor &supervisor = *stage->supervisor;
        supervisor.start();
        bool const isBeforeLock =
            phase == "start" || phase == "ready" || phase == "sync" || phase == "lock";
        if (isBeforeLock)
            passThrough();
        else
            EXPECT_TRUE(supervisor.waitLocked(LONG)) << name;
        if (phase == "recover") {
            (*stage)[culprit].reportRecover();
            passThrough();
            // A recovery that is reported during the stop leads to the abort.
            while (manner == Manner::RECOVERS && stage->getStatus(culprit).nbRefused == 0)
                std::this_thread::yield();
        }
        auto const end = [&] {
            return phase == "abort" ? supervisor.abort(isMute() ? LIMIT : LONG)
                                    : supervisor.stop(isMute() ? 0.2 : LONG, LIMIT);
        };
        if (manner != Manner::SLOW || (phase != "stop" && phase != "abort"))
            return end();
        auto ending = std::async(std::launch::async, end);
        checkSlow();
        return ending.get();
    }
    /// Waits until all devices have locked, or until the culprit is in the call that keeps them
    /// from it.
    void passThrough()
    {
        if (manner == Manner::SLOW)
            checkSlow();
        else
            stage->world->waitFor(call + " " + culprit);
        if (!isMute()) {
            thrownBy([&] { EXPECT_TRUE(stage->supervisor->waitLocked(LONG)) << name; });
        } else if (phase != "recover") { // the culprit is in lock until the call returns
            EXPECT_FALSE(stage->supervisor->waitLocked(0)) << name;
        }
    }
    /// Checks that the status shows the device that the others wait for.
    void checkSlow()
    {
        stage->world->waitFor(call + " " + culprit);
        DevSeqDeviceStatus const status = stage->getStatus(culprit);
        EXPECT_EQ(hasHungRunner() ? status.call : status.step, call.c_str()) << name;
        stage->world->goOn();
    }

    /// Returns true if the device does not answer, or only after the sequence has ended.
    bool isMute() const
    {
        return phase != "close" && (manner == Manner::SILENT || manner == Manner::HANGS ||
                                    (manner == Manner::ABORTS_SILENT && phase == "abort"));
    }
    /// Returns true if the device misbehaves on the thread that calls it. A standard device makes
    /// its steps on its own thread.
    bool hasHungRunner() const { return !IS_STANDARD || phase == "ready" || phase == "lock"; }

    End getExpectedEnd() const
    {
        if (phase == "open" || phase == "close")
            return End::STOPPED;
        if (isThrow(manner) || manner == Manner::DROPS)
            return End::FAILED;
        if (manner == Manner::HANGS)
            return End::NO_ANSWER;
        if (phase == "abort")
            return isMute() ? End::NO_ANSWER : End::ABORTED;
        bool const isRecoveryInStop = phase == "stop" && manner == Manner::RECOVERS;
        bool const isAborted = manner == Manner::ABORTS || manner == Manner::ABORTS_SILENT ||
                               manner == Manner::SILENT || isRecoveryInStop;
        return isAborted ? End::ABORTED : End::STOPPED;
    }

    void checkEnds(DevSeqStatus const &status)
    {
        EXPECT_EQ(status.phase, Phase::ENDED) << name;
        for (DevSeqDeviceStatus const &device : status.devices) {
            std::string const called = device.name.getChars();
            EXPECT_LE(stage->world->count("stop " + called), 1) << name << ": " << called;
            EXPECT_LE(stage->world->count("abort " + called), 1) << name << ": " << called;
            if (called == culprit)
                continue;
            bool const hasStarted = stage->world->count("start " + called) == 1;
            EXPECT_EQ(device.end == End::STOPPED || device.end == End::ABORTED, hasStarted)
                << name << ": " << called << " " << endsOf(status);
            EXPECT_FALSE(device.hasFailed) << name << ": " << called;
        }
        DevSeqDeviceStatus const device = StageOf<Device>::find(status, culprit);
        EXPECT_EQ(device.end, getExpectedEnd()) << name << ": " << endsOf(status);
        EXPECT_EQ(device.hasFailed, getExpectedEnd() == End::FAILED) << name;
        if (getExpectedEnd() == End::STOPPED) {
            EXPECT_EQ(endsOf(status), "stopped stopped stopped stopped stopped") << name;
        }
        if (manner == Manner::HANGS && phase != "close") {
            EXPECT_EQ(hasHungRunner() ? device.call : device.step,
                      hasHungRunner() ? call.c_str() : "abort")
                << name;
        }
        if (manner == Manner::RECOVERS && phase == "lock") {
            EXPECT_EQ(stage->world->count("recover " + culprit), 1) << name;
        }
        if (manner == Manner::TWICE && phase != "close") {
            // The sequence may have ended before the second answer.
            bool const isLast = phase == "stop" || phase == "abort";
            EXPECT_LE(device.nbRefused, 1u) << name;
            EXPECT_TRUE(isLast || device.nbRefused == 1) << name;
        }
    }

    void close()
    {
        if (manner == Manner::HANGS && phase == "open")
            stage->world->waitFor("open " + culprit);
        auto const closeManager = [this] {
            return stage->manager->close(isLeftBehind() ? LIMIT : LONG);
        };
        if (manner == Manner::SLOW && phase == "close") {
            auto closing = std::async(std::launch::async, closeManager);
            stage->world->waitFor("close " + culprit);
            stage->world->goOn();
            checkClosing(closing.get());
        } else {
            checkClosing(closeManager());
        }
        stage->manager = nullptr;
    }
    /// Returns true if the device hangs at the end, so that it cannot be closed.
    bool isLeftBehind() const { return manner == Manner::HANGS; }

    void checkClosing(DevMgrCloseReport const &report)
    {
        using CloseEnd = DevMgrCloseReport::End;
        EXPECT_FALSE(report.isThreadLeftBehind) << name;
        for (DevMgrCloseReport::Device const &device : report.devices) {
            bool const isCulprit = device.name == culprit.c_str();
            bool const hasFailed = isCulprit && phase == "close" && isThrow(manner);
            CloseEnd const expected = hasFailed                       ? CloseEnd::FAILED
                                      : !isCulprit || !isLeftBehind() ? CloseEnd::CLOSED
                                      : phase == "open"               ? CloseEnd::NOT_OPENED
                                                                      : CloseEnd::NOT_CLOSED;
            EXPECT_EQ(device.end, expected) << name << ": " << device.name;
            EXPECT_EQ(thrownBy([&] {
                          if (device.failure)
                              std::rethrow_exception(device.failure);
                      }),
                      hasFailed ? getThrown() : "")
                << name << ": " << device.name;
        }
        Vector<LiString> leftBehind;
        if (isLeftBehind())
            leftBehind.push_back(culprit.c_str());
        EXPECT_EQ(report.getLeftBehind(), leftBehind) << name;
    }

    /// Checks that each opened device was closed once, and was not called afterwards.
    void checkCloses()
    {
        Lines const journal = stage->world->getJournal();
        for (char const *device : DEVICES) {
            std::string const called = device + suffix;
            long nbOpened = 0;
            long nbClosed = 0;
            for (std::string const &line : journal) {
                nbOpened += line == "open " + called;
                EXPECT_FALSE(nbClosed && line.ends_with(" " + called)) << name << ": " << line;
                nbClosed += line == "close " + called;
            }
            bool const isUnopened = called == culprit && phase == "open" && isThrow(manner);
            bool const isHanging = called == culprit && isLeftBehind() && phase != "close";
            EXPECT_EQ(nbClosed, isUnopened || isHanging ? 0 : nbOpened) << name << ": " << called;
        }
    }

    /// Lets the hanging devices continue. They have nothing to do.
    void letGo()
    {
        stage->world->end();
        if (phase == "open" && manner == Manner::HANGS) {
            EXPECT_EQ(opening.get(), "The device manager was closed.") << name;
        } else if (isLeftBehind()) {
            stage->world->waitFor("close " + culprit);
        }
        stage = nullptr;
    }

    std::string getThrown() const
    {
        return manner == Manner::THROWS         ? "No signal."
               : manner == Manner::THROWS_OTHER ? "No power."
                                                : "42";
    }

    static constexpr double LIMIT = 6; // for events that do not occur
    static inline int nextNumber = 0;

    Manner manner;
    std::string phase;
    std::string call;
    std::string name;
    std::string suffix;
    std::string culprit;
    std::unique_ptr<StageOf<Device>> stage;
    std::future<std::string> opening; // the text of its exception
};

class Matrix : public testing::TestWithParam<Kind>
{};

std::vector<DevicePhase> getPhases(Manner manner)
{
    std::vector<DevicePhase> phases;
    for (DevicePhase const &phase : PHASES)
        if (!whyNot(manner, phase.name))
            phases.push_back(phase);
    return phases;
}

// Runs the cases of one kind at the same time, because those that hang wait for their limits.
template <class Device>
void runCases(Kind const &kind)
{
    std::vector<std::unique_ptr<Case<Device>>> cases;
    for (DevicePhase const &phase : getPhases(kind.manner))
        for (char const *place : PLACES)
            cases.push_back(std::make_unique<Case<Device>>(kind.manner, phase, place));
    std::atomic<std::size_t> nbRun{0};
    std::vector<std::thread> threads;
    for (auto const &one : cases)
        threads.emplace_back([&] {
            EXPECT_EQ(thrownBy([&] { one->run(); }), "") << one->name;
            ++nbRun;
        });
    for (std::thread &thread : threads)
        thread.join();
    for (auto const &one : cases)
        one->letGo();
    EXPECT_EQ(nbRun, getPhases(kind.manner).size() * std::size(PLACES));
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

// Counts all kinds in each phase. Each cell that is left out must have a reason.
TEST(MatrixCells, RunOrHaveAReason)
{
    std::map<std::string, std::size_t> nbLeftOut;
    std::size_t nbRun = 0;
    for (Kind const &kind : KINDS) {
        nbRun += getPhases(kind.manner).size();
        for (DevicePhase const &phase : PHASES)
            if (char const * const reason = whyNot(kind.manner, phase.name))
                ++nbLeftOut[reason];
    }
    EXPECT_EQ(nbRun, 98u);
    EXPECT_EQ(nbLeftOut,
              (std::map<std::string, std::size_t>{
                  {"The call has no completion. It is answered when it returns.", 16},
                  {"The device has not been given a completion or a notification yet.", 3}}));
    EXPECT_EQ(nbRun + 16 + 3, std::size(KINDS) * std::size(PHASES));
}

} // namespace
} // namespace ZvTest
