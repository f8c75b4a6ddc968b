// Helpers for the conformance tests. The tests use the services only through their header. The same
// sources therefore show whether another implementation conforms.
#pragma once

#include "platform/services.h"
#include "testing/childProcess.h"
#include "zvbase/platform/shared.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace ZvTest {

inline HANDLE const INVALID = reinterpret_cast<HANDLE>(std::intptr_t{-1});

/// A last error that no service sets.
inline constexpr DWORD UNTOUCHED = 4711;

/// Handle that is closed by the destructor.
class Owned
{
public:
    Owned() = default;
    explicit Owned(HANDLE handle) : _handle(handle) { EXPECT_NE(handle, nullptr); }
    Owned(Owned &&other) noexcept : _handle(std::exchange(other._handle, nullptr)) {}
    ~Owned() { close(); }

    operator HANDLE() const { return _handle; }
    void close()
    {
        if (_handle) {
            EXPECT_TRUE(CloseHandle(std::exchange(_handle, nullptr)));
        }
    }

private:
    HANDLE _handle = nullptr;
};

inline Owned mutex(char const *name = nullptr)
{
    return Owned(CreateMutexA(nullptr, FALSE, name));
}
inline Owned manualEvent(bool set = false)
{
    return Owned(CreateEventA(nullptr, TRUE, set, nullptr));
}
inline Owned autoEvent(bool set = false)
{
    return Owned(CreateEventA(nullptr, FALSE, set, nullptr));
}
inline Owned semaphore(LONG count = 0, LONG maximum = 0x7FFFFFFF)
{
    return Owned(CreateSemaphoreA(nullptr, count, maximum, nullptr));
}

/// Bytes for which no process has the addresses. The second size is the lower one, if there are
/// two.
inline constexpr SIZE_T TOO_MUCH = SIZE_MAX / 16 * 15;
inline constexpr SIZE_T STILL_TOO_MUCH = sizeof(SIZE_T) > 4 ? SIZE_MAX >> 14 : TOO_MUCH;

/// A time-out of 60 seconds, for waits that would never end if a test has failed.
inline constexpr DWORD LONG_TIME = 60000;

/// A thread of the services, joined by the destructor.
class Runner
{
public:
    explicit Runner(std::function<DWORD()> body, SIZE_T stackSize = 0x10000)
        : _body(std::move(body)), _thread(CreateThread(nullptr, stackSize, run, this, 0, &_number))
    {}
    ~Runner() { join(); }

    Runner(Runner const &) = delete;
    Runner &operator=(Runner const &) = delete;

    HANDLE handle() const { return _thread; }
    DWORD number() const { return _number; }
    void join() { EXPECT_EQ(WaitForSingleObject(_thread, LONG_TIME), WAIT_OBJECT_0); }
    DWORD exitCode()
    {
        DWORD code = 0;
        EXPECT_TRUE(GetExitCodeThread(_thread, &code));
        return code;
    }

private:
    static DWORD run(void *self) { return static_cast<Runner *>(self)->_body(); }

    std::function<DWORD()> _body;
    DWORD _number = 0;
    Owned _thread;
};

/// Data of a thread that a test kills. The thread has no frame except that of its function, and
/// sets `begun` first. `Scene` is the derived class.
template <class Scene>
struct VictimScene
{
    HANDLE begun = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE object = nullptr;
    ZvPlatform::Shared<long> rounds{0};

    VictimScene() = default;
    ~VictimScene() { EXPECT_TRUE(CloseHandle(begun)); }
    VictimScene(VictimScene const &) = delete;
    VictimScene &operator=(VictimScene const &) = delete;

    /// Starts a thread with this object as its argument. Returns when it has begun.
    HANDLE start(LPTHREAD_START_ROUTINE body)
    {
        HANDLE const thread =
            CreateThread(nullptr, 0x10000, body, static_cast<Scene *>(this), 0, nullptr);
        EXPECT_EQ(WaitForSingleObject(begun, LONG_TIME), WAIT_OBJECT_0);
        return thread;
    }
};

/// Returns the result of a wait on a thread of its own.
inline DWORD waitElsewhere(HANDLE handle, DWORD milliseconds)
{
    DWORD result = 0;
    Runner runner([&] {
        result = WaitForSingleObject(handle, milliseconds);
        return 0;
    });
    runner.join();
    return result;
}

template <std::size_t SIZE>
DWORD useStack(void *)
{
    char volatile frame[SIZE];
    for (std::size_t i = 0; i < SIZE; i += 64)
        frame[i] = static_cast<char>(i);
    frame[SIZE - 1] = 1;
    return static_cast<DWORD>(frame[SIZE - 1]);
}

/// Checks that a thread with a stack of `stackSize` bytes can use a frame of SIZE bytes.
template <std::size_t SIZE>
void usesStack(SIZE_T stackSize)
{
    Owned const t(CreateThread(nullptr, stackSize, useStack<SIZE>, nullptr, 0, nullptr));
    EXPECT_EQ(WaitForSingleObject(t, LONG_TIME), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(t, &code));
    EXPECT_EQ(code, 1u);
}

/// Starts this program again for one test, which is disabled otherwise. That test runs in a process
/// of its own.
inline ChildProcess startElsewhere(std::string const &test)
{
    return ChildProcess(
        {"--gtest_filter=" + test, "--gtest_also_run_disabled_tests", "--gtest_brief=1"});
}

/// Checks that the process that a test has started ends without a failure.
inline void expectSuccess(ChildProcess &child)
{
    ChildProcess::End const end = child.await();
    EXPECT_EQ(end.code, 0) << end.output;
}

#define EXPECT_FAILS(code, ...)                                                                    \
    do {                                                                                           \
        SetLastError(ZvTest::UNTOUCHED);                                                           \
        EXPECT_FALSE(__VA_ARGS__);                                                                 \
        EXPECT_EQ(GetLastError(), code);                                                           \
    } while (false)

#define EXPECT_SUCCEEDS(...)                                                                       \
    do {                                                                                           \
        SetLastError(ZvTest::UNTOUCHED);                                                           \
        EXPECT_TRUE(__VA_ARGS__);                                                                  \
        EXPECT_EQ(GetLastError(), ZvTest::UNTOUCHED);                                              \
    } while (false)

#define EXPECT_WAIT_FAILS(...)                                                                     \
    do {                                                                                           \
        SetLastError(ZvTest::UNTOUCHED);                                                           \
        EXPECT_EQ(__VA_ARGS__, WAIT_FAILED);                                                       \
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);                                           \
    } while (false)

} // namespace ZvTest
