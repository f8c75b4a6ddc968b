// Services in the child of a fork.
#include "platform/platformTest.h"

#include "testing/asleep.h"

#include <atomic>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ZvTest {

namespace {

/// Forks. The child exits with the result of `body`. A signal ends it if that takes too long.
template <class Body>
pid_t startChild(Body const &body)
{
    pid_t const child = ::fork();
    if (child == 0) {
        ::alarm(LONG_TIME / 1000);
        ::_exit(body());
    }
    EXPECT_GT(child, 0);
    return child;
}

void expectEnd(pid_t child)
{
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

/// Makes the line of the child's first failed check its exit code.
#define ZV_CHECK(...)                                                                              \
    do {                                                                                           \
        if (!(__VA_ARGS__))                                                                        \
            return __LINE__ & 0xFF ? __LINE__ & 0xFF : 1;                                          \
    } while (false)

std::string forkNameFor(char const *what)
{
    return std::string("zvfork-") + what + '-' + std::to_string(GetCurrentProcessId());
}

constexpr char const *FORK_NAME = "ZV_FORK_NAME";

/// Returns what a process sees that knows only the name of the semaphore.
int whatAStrangerSees(char const *test, std::string const &name)
{
    setVariable(FORK_NAME, name.c_str());
    ChildProcess child = startElsewhere(std::string("PlatformFork.DISABLED_") + test);
    setVariable(FORK_NAME, nullptr);
    return child.await().code;
}

constexpr int SEEN = 10, NOT_SEEN = 11;

} // namespace

/// Not a test: a process that looks for a semaphore.
TEST(PlatformFork, DISABLED_Stranger)
{
    if (char const *name = std::getenv(FORK_NAME))
        std::_Exit(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, name) ? SEEN : NOT_SEEN);
}

/// Not a test: a process that ends with a semaphore open.
TEST(PlatformFork, DISABLED_Careless)
{
    if (char const *name = std::getenv(FORK_NAME))
        std::_Exit(CreateSemaphoreA(nullptr, 0, 1, name) ? SEEN : NOT_SEEN);
}

void *memory()
{
    return VirtualAlloc(nullptr, 4096, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
}

TEST(PlatformFork, AChildMakesObjectsWhileTheParentsThreadsUseThem)
{
    // Each body keeps one lock of the layer busy.
    void (* const bodies[])() = {[] { Owned const m = mutex(); }, [] { TlsFree(TlsAlloc()); },
                                 [] { Owned const m = mutex(forkNameFor("busy").c_str()); },
                                 [] {
                                     long value = 0, compare = 0;
                                     WaitOnAddress(&value, &compare, sizeof value, 0);
                                 },
                                 [] { VirtualFree(memory(), 0, MEM_RELEASE); }};
    for (auto body : bodies) {
        std::atomic<bool> isOver{false};
        std::vector<std::unique_ptr<Runner>> busy;
        for (int i = 0; i < 2; ++i)
            busy.push_back(std::make_unique<Runner>([&] {
                while (!isOver)
                    body();
                return 0;
            }));
        for (int round = 0; round < 50; ++round)
            expectEnd(startChild([] {
                HANDLE const m = CreateMutexA(nullptr, TRUE, nullptr);
                ZV_CHECK(m && ReleaseMutex(m) && CloseHandle(m));
                HANDLE const n = CreateMutexA(nullptr, FALSE, forkNameFor("child").c_str());
                ZV_CHECK(n && CloseHandle(n));
                HANDLE const s = CreateSemaphoreA(nullptr, 1, 1, nullptr);
                ZV_CHECK(WaitForSingleObject(s, INFINITE) == WAIT_OBJECT_0);
                ZV_CHECK(WaitForSingleObject(s, 1) == WAIT_TIMEOUT);
                DWORD const slot = TlsAlloc();
                ZV_CHECK(slot != TLS_OUT_OF_INDEXES && TlsFree(slot));
                long value = 0, compare = 0;
                WaitOnAddress(&value, &compare, sizeof value, 1);
                ZV_CHECK(VirtualFree(memory(), 0, MEM_RELEASE));
                ZV_CHECK(SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_NORMAL));
                return 0;
            }));
        isOver = true;
    }
}

TEST(PlatformFork, OtherThreadsHaveEndedForTheChild)
{
    Owned const held = mutex(), s = semaphore(), has = manualEvent(), go = manualEvent();
    Runner other([&] {
        EXPECT_EQ(WaitForSingleObject(held, 0), WAIT_OBJECT_0);
        SetEvent(has);
        WaitForSingleObject(s, LONG_TIME);
        WaitForSingleObject(go, LONG_TIME);
        EXPECT_TRUE(ReleaseMutex(held));
        return 0;
    });
    WaitForSingleObject(has, INFINITE);
    expectEnd(startChild([&] {
        ZV_CHECK(WaitForSingleObject(other.handle(), INFINITE) == WAIT_OBJECT_0);
        ZV_CHECK(TerminateThread(other.handle(), 0));
        ZV_CHECK(WaitForSingleObject(held, INFINITE) == WAIT_ABANDONED);
        ZV_CHECK(ReleaseMutex(held));
        // The other thread does not wait in the child, so the child gets the unit.
        ZV_CHECK(ReleaseSemaphore(s, 1, nullptr));
        ZV_CHECK(WaitForSingleObject(s, 0) == WAIT_OBJECT_0);
        ZV_CHECK(SetEvent(go));
        return 0;
    }));
    // The child has changed nothing in this process.
    EXPECT_EQ(WaitForSingleObject(other.handle(), 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(held, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(ReleaseSemaphore(s, 1, nullptr));
    EXPECT_TRUE(SetEvent(go));
}

TEST(PlatformFork, AChildReusesTheNumberOfAThreadThatWasKilled)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "under the thread sanitizer a child of several threads can start none";
#endif
    std::atomic<int> kernelId{0};
    Runner victim([&]() -> DWORD {
        kernelId = ::gettid();
        TerminateThread(GetCurrentThread(), 0);
        return 1;
    });
    victim.join();
    // The system ends the thread after its handle is signalled.
    while (::syscall(SYS_tgkill, ::getpid(), kernelId.load(), 0) == 0)
        Sleep(0);
    DWORD const number = victim.number();
    HANDLE const handle = victim.handle();
    expectEnd(startChild([=] {
        ZV_CHECK(CloseHandle(handle));
        DWORD next = 0;
        HANDLE const thread = CreateThread(
            nullptr, 0x10000, [](void *) -> DWORD { return 0; }, nullptr, 0, &next);
        ZV_CHECK(WaitForSingleObject(thread, LONG_TIME) == WAIT_OBJECT_0);
        ZV_CHECK(next == number);
        return 0;
    }));
}

TEST(PlatformFork, AChildChangesNoPriorityOfItsParents)
{
    std::atomic<int> kernelId{0};
    Owned const go = manualEvent();
    Runner other([&] {
        kernelId = ::gettid();
        return WaitForSingleObject(go, LONG_TIME);
    });
    while (!kernelId)
        Sleep(0);
    auto const id = static_cast<id_t>(kernelId.load());
    int const before = ::getpriority(PRIO_PROCESS, id);
    expectEnd(startChild([&] {
        ZV_CHECK(SetThreadPriority(other.handle(), THREAD_PRIORITY_ABOVE_NORMAL));
        ZV_CHECK(SetPriorityClass(GetCurrentProcess(), HIGH_PRIORITY_CLASS));
        return 0;
    }));
    EXPECT_EQ(::getpriority(PRIO_PROCESS, id), before);
    EXPECT_TRUE(SetEvent(go));
}

TEST(PlatformFork, AChildThatClosesItsSemaphoreLeavesTheName)
{
    std::string const name = forkNameFor("closing");
    Owned const s(CreateSemaphoreA(nullptr, 0, 1, name.c_str()));
    expectEnd(startChild([&] { return CloseHandle(s) ? 0 : 1; }));
    EXPECT_EQ(whatAStrangerSees("Stranger", name), SEEN);
}

TEST(PlatformFork, AChildKeepsASemaphoreThatItsParentCloses)
{
    std::string const name = forkNameFor("keeping");
    Owned s(CreateSemaphoreA(nullptr, 0, 1, name.c_str()));
    Owned const end(CreateSemaphoreA(nullptr, 0, 1, forkNameFor("end").c_str()));
    pid_t const child =
        startChild([&] { return WaitForSingleObject(end, INFINITE) == WAIT_OBJECT_0 ? 0 : 1; });
    s.close();
    EXPECT_EQ(whatAStrangerSees("Stranger", name), SEEN);
    EXPECT_TRUE(ReleaseSemaphore(end, 1, nullptr));
    expectEnd(child);
    EXPECT_EQ(whatAStrangerSees("Stranger", name), NOT_SEEN);
}

TEST(PlatformFork, AForkLeavesNoDescriptorBehind)
{
    Owned const s(CreateSemaphoreA(nullptr, 0, 1, forkNameFor("descriptors").c_str()));
    auto const count = [] {
        DIR *descriptors = ::opendir("/proc/self/fd");
        int number = 0;
        while (::readdir(descriptors))
            ++number;
        ::closedir(descriptors);
        return number;
    };
    int const before = count();
    for (int round = 0; round < 10; ++round)
        expectEnd(startChild([&] { return count() == before ? 0 : 1; }));
    EXPECT_EQ(count(), before);
}

namespace {

char stateOf(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string line;
    std::getline(file, line);
    return line.at(line.rfind(')') + 2);
}

} // namespace

TEST(PlatformNames, APostIsNotLostWithAProcessThatDiesOfIt)
{
    Owned const s(CreateSemaphoreA(nullptr, 0, 2, forkNameFor("lost").c_str()));
    Owned const ready(CreateSemaphoreA(nullptr, 0, 1, forkNameFor("ready").c_str()));
    for (int round = 0; round < 20; ++round) {
        pid_t const first = startChild([&] {
            ReleaseSemaphore(ready, 1, nullptr);
            WaitForSingleObject(s, INFINITE);
            return 0;
        });
        EXPECT_EQ(WaitForSingleObject(ready, LONG_TIME), WAIT_OBJECT_0);
        while (stateOf(first) != 'S')
            Sleep(0);
        std::atomic<long> number{0};
        std::atomic<bool> isOver{false};
        Runner behind([&] {
            number = ZvTest::threadNumber();
            WaitForSingleObject(s, INFINITE);
            isOver = true;
            return 0;
        });
        while (!number)
            Sleep(0);
        ZvTest::waitUntilAsleep(number);

        EXPECT_TRUE(ReleaseSemaphore(s, 1, nullptr));
        EXPECT_EQ(::kill(first, SIGKILL), 0);
        int status = 0;
        EXPECT_EQ(::waitpid(first, &status, 0), first);
        while (!isOver && !ZvTest::isAsleep(number))
            Sleep(0);
        // A thread that sleeps has looked for the unit. The first process had then taken the unit
        // before it died.
        LONG left = 0;
        EXPECT_TRUE(ReleaseSemaphore(s, 1, &left));
        EXPECT_TRUE(isOver || left == 0) << round;
        behind.join();
        while (WaitForSingleObject(s, 0) == WAIT_OBJECT_0) {
        }
    }
}

namespace {

/// Returns whether a file of the semaphore is in the folder of `user`.
bool hasFile(uid_t user, std::string const &name)
{
    DIR *folder = ::opendir(("/dev/shm/zvresmgt-" + std::to_string(user)).c_str());
    bool found = false;
    while (dirent const *entry = folder ? ::readdir(folder) : nullptr)
        found = found || std::string(entry->d_name).starts_with(name + '.');
    if (folder)
        ::closedir(folder);
    return found;
}

} // namespace

TEST(PlatformNames, TheNextProcessRemovesWhatAKilledOneLeft)
{
    std::string const name = forkNameFor("careless");
    EXPECT_EQ(whatAStrangerSees("Careless", name), SEEN);
    EXPECT_EQ(whatAStrangerSees("Careless", forkNameFor("next")), SEEN);
    EXPECT_FALSE(hasFile(::geteuid(), name));
}

TEST(PlatformNames, TheMaskOfAProcessExcludesNoOther)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only the superuser can become a user that has no folder yet";
    uid_t const user = 1'000'000'000 + GetCurrentProcessId();
    std::string const folder = "/dev/shm/zvresmgt-" + std::to_string(user);
    for (mode_t mask : {0177, 0777}) {
        expectEnd(startChild([&] {
            ZV_CHECK(::setresuid(user, user, user) == 0);
            ::umask(mask);
            std::string const name = forkNameFor("masked");
            HANDLE const s = CreateSemaphoreA(nullptr, 0, 1, name.c_str());
            ZV_CHECK(s && GetLastError() == ERROR_SUCCESS);
            // A second process of that user, with another mask.
            pid_t const other = ::fork();
            if (other == 0) {
                ::umask(022);
                CloseHandle(s);
                HANDLE const found = OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, name.c_str());
                HANDLE const own = CreateSemaphoreA(nullptr, 0, 1, forkNameFor("own").c_str());
                ::_exit(found && own && CloseHandle(found) && CloseHandle(own) ? 0 : 1);
            }
            int status = -1;
            ZV_CHECK(::waitpid(other, &status, 0) == other && status == 0);
            ZV_CHECK(CloseHandle(s));
            return 0;
        }));
        EXPECT_EQ(::rmdir(folder.c_str()), 0);
    }
    // A process that ended before its `chmod` leaves such a folder.
    EXPECT_EQ(::mkdir(folder.c_str(), 0), 0);
    EXPECT_EQ(::chown(folder.c_str(), user, user), 0);
    expectEnd(startChild([&] {
        ZV_CHECK(::setresuid(user, user, user) == 0);
        HANDLE const s = CreateSemaphoreA(nullptr, 0, 1, forkNameFor("barred").c_str());
        ZV_CHECK(s && CloseHandle(s));
        return 0;
    }));
    EXPECT_EQ(::rmdir(folder.c_str()), 0);
}

} // namespace ZvTest
