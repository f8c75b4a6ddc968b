#include "platform/platformTest.h"

#include <atomic>
#include <cstdlib>
#include <string>

namespace ZvTest {

namespace {

/// A name that no other test and no other run uses.
std::string nameFor(char const *what)
{
    return std::string("zv conformance/") + what + ' ' + std::to_string(GetCurrentProcessId());
}

HANDLE create(int kind, char const *name)
{
    switch (kind) {
    case 0:
        return CreateMutexA(nullptr, FALSE, name);
    case 1:
        return CreateEventA(nullptr, TRUE, FALSE, name);
    case 2:
        return CreateSemaphoreA(nullptr, 0, 10, name);
    default:
        return CreateWaitableTimerA(nullptr, TRUE, name);
    }
}

constexpr int KINDS = 4;

} // namespace

TEST(PlatformNames, ANameIsMadeOnceAndOpenedAfterwards)
{
    for (int kind = 0; kind < KINDS; ++kind) {
        std::string const name = nameFor("once");
        SetLastError(UNTOUCHED);
        Owned const first(create(kind, name.c_str()));
        EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
        SetLastError(UNTOUCHED);
        Owned const second(create(kind, name.c_str()));
        EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    }
}

TEST(PlatformNames, BothHandlesAreOneObject)
{
    std::string const name = nameFor("shared");
    Owned first(CreateEventA(nullptr, TRUE, FALSE, name.c_str()));
    // An object that exists keeps its kind and state.
    Owned const second(CreateEventA(nullptr, FALSE, TRUE, name.c_str()));
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(first));
    first.close();
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_OBJECT_0);
}

TEST(PlatformNames, OpeningAnExistingMutexDoesNotOwnIt)
{
    std::string const name = nameFor("owned");
    Owned const first = mutex(name.c_str());
    Owned const second(CreateMutexA(nullptr, TRUE, name.c_str()));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(waitElsewhere(first, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(first, 0), WAIT_ABANDONED);
    EXPECT_TRUE(ReleaseMutex(second));
}

TEST(PlatformNames, ANameOfAnotherTypeFails)
{
    for (int kind = 0; kind < KINDS; ++kind)
        for (int other = 0; other < KINDS; ++other) {
            if (kind == other)
                continue;
            std::string const name = nameFor("type");
            Owned const first(create(kind, name.c_str()));
            EXPECT_FAILS(ERROR_INVALID_HANDLE, create(other, name.c_str()));
        }
    std::string const name = nameFor("type");
    Owned const first = mutex(name.c_str());
    EXPECT_FAILS(ERROR_INVALID_HANDLE, OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, name.c_str()));
}

TEST(PlatformNames, AnObjectDiesWithItsLastHandle)
{
    for (int kind = 0; kind < KINDS; ++kind) {
        std::string const name = nameFor("last");
        for (int round = 0; round < 3; ++round) {
            Owned first(create(kind, name.c_str()));
            EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
            Owned second(create(kind, name.c_str()));
            first.close();
            Owned third(create(kind, name.c_str()));
            EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
        }
    }
}

TEST(PlatformNames, DifferInEveryByte)
{
    std::string const name = nameFor("case");
    std::string const upper = nameFor("CASE");
    for (int kind = 0; kind < KINDS; ++kind) {
        Owned const first(create(kind, name.c_str()));
        Owned const second(create(kind, upper.c_str()));
        EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    }
}

TEST(PlatformNames, NamesThatCannotBe)
{
    for (int kind = 0; kind < KINDS; ++kind)
        EXPECT_FAILS(ERROR_PATH_NOT_FOUND, create(kind, "a\\b"));
}

namespace {

void expectALimit(int kind)
{
    std::string const longest(MAX_PATH - 1, 'n'), tooLong(MAX_PATH, 'n');
    EXPECT_FAILS(ERROR_FILENAME_EXCED_RANGE, create(kind, tooLong.c_str()));
    Owned const good(create(kind, longest.c_str()));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
}

} // namespace

TEST(PlatformNames, OfAMutexAreLimited)
{
    expectALimit(0);
}

TEST(PlatformNames, OfAnythingElseAreLimited)
{
    for (int kind = 1; kind < KINDS; ++kind)
        expectALimit(kind);
}

TEST(PlatformNames, APrefixNamesTheSessionOrTheMachine)
{
    for (int kind = 0; kind < KINDS; ++kind) {
        std::string const name = nameFor("prefix");
        Owned const plain(create(kind, name.c_str()));
        Owned const local(create(kind, ("Local\\" + name).c_str()));
        EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
        Owned const global(create(kind, ("Global\\" + name).c_str()));
        EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
        Owned const again(create(kind, ("Global\\" + name).c_str()));
        EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
        for (char const *bad : {"Local\\a\\b", "Global\\a\\b", "local\\a"})
            EXPECT_FAILS(ERROR_PATH_NOT_FOUND, create(kind, bad));
        for (char const *nothing : {"Local\\", "Global\\"})
            EXPECT_EQ(create(kind, nothing), nullptr);
    }
    std::string const name = nameFor("prefix");
    Owned const made(create(2, ("Local\\" + name).c_str()));
    Owned const found(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, name.c_str()));
    EXPECT_TRUE(ReleaseSemaphore(found, 1, nullptr));
    EXPECT_EQ(WaitForSingleObject(made, 0), WAIT_OBJECT_0);
}

TEST(PlatformNames, AnEmptyNameCountsAsNoName)
{
    for (int kind = 0; kind < KINDS; ++kind) {
        Owned const first(create(kind, "")), second(create(kind, ""));
        EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
        EXPECT_NE(HANDLE{first}, HANDLE{second});
    }
}

TEST(PlatformNames, LongNamesThatDifferAtTheirEndAreTwo)
{
    std::string const common(MAX_PATH - 2, 'x');
    Owned const first(create(2, (common + 'a').c_str()));
    Owned const second(create(2, (common + 'b').c_str()));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    EXPECT_TRUE(ReleaseSemaphore(first, 1, nullptr));
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_TIMEOUT);
}

TEST(PlatformNames, RacingCreatorsGetOneObject)
{
    constexpr int THREADS = 4;
    for (int kind = 0; kind < KINDS; ++kind)
        for (int round = 0; round < 25; ++round) {
            std::string const name = nameFor("race");
            std::atomic<int> made{0}, opened{0};
            Owned const go = manualEvent(), done = manualEvent(), had = semaphore();
            std::vector<std::unique_ptr<Runner>> runners;
            for (int i = 0; i < THREADS; ++i)
                runners.push_back(std::make_unique<Runner>([&, kind] {
                    WaitForSingleObject(go, INFINITE);
                    Owned const mine(create(kind, name.c_str()));
                    ++(GetLastError() == ERROR_ALREADY_EXISTS ? opened : made);
                    ReleaseSemaphore(had, 1, nullptr);
                    WaitForSingleObject(done, INFINITE);
                    return 0;
                }));
            SetEvent(go);
            for (int i = 0; i < THREADS; ++i)
                WaitForSingleObject(had, INFINITE);
            EXPECT_EQ(made, 1);
            EXPECT_EQ(opened, THREADS - 1);
            SetEvent(done);
            runners.clear();
        }
}

TEST(PlatformNames, RacingCreationAndDeathAreHarmless)
{
    std::string const name = nameFor("churn");
    for (int kind = 0; kind < KINDS; ++kind) {
        std::vector<std::unique_ptr<Runner>> runners;
        for (int i = 0; i < 3; ++i)
            runners.push_back(std::make_unique<Runner>([&, kind] {
                for (int round = 0; round < 200; ++round) {
                    Owned const mine(create(kind, name.c_str()));
                    EXPECT_NE(WaitForSingleObject(mine, 0), WAIT_FAILED);
                    if (kind == 0) {
                        ReleaseMutex(mine);
                    }
                }
                return 0;
            }));
    }
    Owned const last(create(0, name.c_str()));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
}

TEST(PlatformNames, OpeningASemaphoreThatIsNotThereFails)
{
    std::string const name = nameFor("absent");
    EXPECT_FAILS(ERROR_FILE_NOT_FOUND, OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, name.c_str()));
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, nullptr));
    EXPECT_FAILS(ERROR_INVALID_HANDLE, OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, ""));
    EXPECT_FAILS(ERROR_PATH_NOT_FOUND, OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, "a\\b"));
}

TEST(PlatformNames, OpeningASemaphoreKeepsTheLastError)
{
    std::string const name = nameFor("open");
    Owned first(CreateSemaphoreA(nullptr, 1, 2, name.c_str()));
    SetLastError(UNTOUCHED);
    Owned second(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, name.c_str()));
    EXPECT_EQ(GetLastError(), UNTOUCHED);
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(first, 0), WAIT_TIMEOUT);
    first.close();
    second.close();
    EXPECT_FAILS(ERROR_FILE_NOT_FOUND, OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, name.c_str()));
}

TEST(PlatformNames, ASemaphoreWithANameCountsAsOneWithout)
{
    std::string const name = nameFor("counts");
    Owned const s(CreateSemaphoreA(nullptr, 1, 3, name.c_str()));
    EXPECT_EQ(WaitForSingleObject(s, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(s, 1), WAIT_TIMEOUT);
    LONG previous = -1;
    EXPECT_SUCCEEDS(ReleaseSemaphore(s, 2, &previous));
    EXPECT_EQ(previous, 0);
    EXPECT_FAILS(ERROR_TOO_MANY_POSTS, ReleaseSemaphore(s, 2, nullptr));
    EXPECT_FAILS(ERROR_INVALID_HANDLE, ReleaseMutex(s));
    EXPECT_EQ(waitElsewhere(s, 0), WAIT_OBJECT_0);
}

TEST(PlatformNames, ASemaphoreWithANameIsNotReleasedByNothing)
{
    Owned const s(CreateSemaphoreA(nullptr, 1, 3, nameFor("nothing").c_str()));
    for (LONG count : {0, -1})
        EXPECT_FAILS(ERROR_INVALID_PARAMETER, ReleaseSemaphore(s, count, nullptr));
}

TEST(PlatformNames, WaitersOfASemaphoreWithANameAreServed)
{
    std::string const name = nameFor("waiters");
    Owned const s(CreateSemaphoreA(nullptr, 0, 100, name.c_str()));
    std::vector<std::unique_ptr<Runner>> runners;
    for (int i = 0; i < 4; ++i)
        runners.push_back(std::make_unique<Runner>([&] {
            Owned const mine(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, name.c_str()));
            for (int round = 0; round < 50; ++round)
                EXPECT_EQ(WaitForSingleObject(mine, LONG_TIME), WAIT_OBJECT_0);
            return 0;
        }));
    for (int i = 0; i < 100; ++i)
        while (!ReleaseSemaphore(s, 2, nullptr))
            Sleep(0);
    runners.clear();
    EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_TIMEOUT);
}

namespace {

/// Tells a process that a test has started what to do.
constexpr char const *ROLE = "ZV_CONFORMANCE_ROLE";
constexpr char const *NAME = "ZV_CONFORMANCE_NAME";

/// The environment in which a process finds its role, as long as this object lives.
struct Role
{
    Role(char const *role, std::string const &name)
    {
        setVariable(ROLE, role);
        setVariable(NAME, name.c_str());
    }
    ~Role() { setVariable(ROLE, nullptr); }
    Role(Role const &) = delete;
    Role &operator=(Role const &) = delete;
};

ChildProcess startProcess(char const *role, std::string const &name)
{
    Role const playing(role, name);
    return startElsewhere("PlatformNames.DISABLED_OtherProcess");
}

bool is(char const *role)
{
    char const *mine = std::getenv(ROLE);
    return mine && std::string(mine) == role;
}

} // namespace

/// Not a test: the processes that the tests below start.
TEST(PlatformNames, DISABLED_OtherProcess)
{
    if (!std::getenv(ROLE))
        return;
    std::string const name = std::getenv(NAME), back = name + " back";
    HANDLE const s = OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, name.c_str());
    if (is("absent"))
        std::_Exit(s == nullptr && GetLastError() == ERROR_FILE_NOT_FOUND ? 0 : 1);
    HANDLE const b = CreateSemaphoreA(nullptr, 0, 1000, back.c_str());
    if (!s || !b || GetLastError() != ERROR_ALREADY_EXISTS)
        std::_Exit(1);
    if (is("die")) {
        ReleaseSemaphore(b, 1, nullptr);
        WaitForSingleObject(s, LONG_TIME);
        std::_Exit(3);
    }
    for (int i = 0; i < 200; ++i) {
        if (WaitForSingleObject(s, LONG_TIME) != WAIT_OBJECT_0)
            std::_Exit(2);
        ReleaseSemaphore(b, 1, nullptr);
    }
    std::_Exit(0);
}

TEST(PlatformNames, ASemaphoreWorksBetweenProcesses)
{
    std::string const name = nameFor("processes"), back = name + " back";
    Owned s(CreateSemaphoreA(nullptr, 0, 1000, name.c_str()));
    Owned b(CreateSemaphoreA(nullptr, 0, 1000, back.c_str()));
    ChildProcess child = startProcess("echo", name);
    for (int i = 0; i < 200; ++i) {
        ReleaseSemaphore(s, 1, nullptr);
        ASSERT_EQ(WaitForSingleObject(b, LONG_TIME), WAIT_OBJECT_0);
    }
    expectSuccess(child);
    // The other process has closed its handles. Those of this process keep the objects.
    Owned const again(CreateSemaphoreA(nullptr, 0, 1000, name.c_str()));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
}

TEST(PlatformNames, ASemaphoreIsGoneForOtherProcessesWithItsLastHandle)
{
    std::string const name = nameFor("gone");
    Owned s(CreateSemaphoreA(nullptr, 0, 1, name.c_str()));
    s.close();
    ChildProcess child = startProcess("absent", name);
    expectSuccess(child);
}

TEST(PlatformNames, ASemaphoreSurvivesTheDeathOfAProcessThatUsesIt)
{
    std::string const name = nameFor("killed"), back = name + " back";
    Owned s(CreateSemaphoreA(nullptr, 0, 1, name.c_str()));
    Owned b(CreateSemaphoreA(nullptr, 0, 1, back.c_str()));
    ChildProcess child = startProcess("die", name);
    EXPECT_EQ(WaitForSingleObject(b, LONG_TIME), WAIT_OBJECT_0);
    child.kill();
    EXPECT_EQ(child.await().code, CODE_OF_THE_KILLED);
    EXPECT_TRUE(ReleaseSemaphore(s, 1, nullptr));
    EXPECT_EQ(WaitForSingleObject(s, LONG_TIME), WAIT_OBJECT_0);
    s.close();
    EXPECT_FAILS(ERROR_FILE_NOT_FOUND, OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, name.c_str()));
}

} // namespace ZvTest
