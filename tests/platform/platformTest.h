// Small helpers for the conformance tests. The tests know the services by their header alone, so that the same source
// tells whether any other implementation conforms.
#pragma once

#include "childProcess.h"
#include "platform/services.h"

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

/// Closes its handle at its end.
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

/// Waits for ever where a test could hang only if it has failed: 60 seconds.
inline constexpr DWORD LONG_TIME = 60000;

/// A thread by the services, joined at its end.
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

/// What a wait does on a thread of its own.
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

/// A thread with a stack of `stackSize` has SIZE bytes of it for a frame, to the last one.
template <std::size_t SIZE>
void usesStack(SIZE_T stackSize)
{
    Owned const t(CreateThread(nullptr, stackSize, useStack<SIZE>, nullptr, 0, nullptr));
    EXPECT_EQ(WaitForSingleObject(t, LONG_TIME), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(t, &code));
    EXPECT_EQ(code, 1u);
}

/// Starts this program anew for one test alone, which is disabled otherwise: what is done there is another process's.
inline ChildProcess startElsewhere(std::string const &test)
{
    return ChildProcess(
        {"--gtest_filter=" + test, "--gtest_also_run_disabled_tests", "--gtest_brief=1"});
}

/// The process that a test has started ends well.
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
