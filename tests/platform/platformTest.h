// Small helpers for the conformance tests. The tests know the services by their header alone, so that the same source
// tells whether any other implementation conforms.
#pragma once

#include "platform/services.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <utility>
#include <vector>

#ifndef _WIN32
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#endif

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

#ifndef _WIN32

/// Starts this program anew for one test alone, which is disabled otherwise: what is done there is another process's.
inline pid_t startElsewhere(char const *test)
{
    std::string const filter = std::string("--gtest_filter=") + test;
    pid_t const child = ::fork();
    if (child == 0) {
        ::execl("/proc/self/exe", "conformance", filter.c_str(), "--gtest_also_run_disabled_tests",
                "--gtest_brief=1", nullptr);
        ::_exit(126);
    }
    return child;
}

inline int statusOf(pid_t child)
{
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return status;
}

#endif

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
