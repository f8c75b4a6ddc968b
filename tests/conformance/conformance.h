// What the services answer, line by line, in words that are the same wherever the program runs.
//
// A line has the table, the scene, the call as it stands in the source, and what it returned and left as last error.
// Nothing in it depends on time, addresses or the machine: a race is shown by what holds in each of its orders.
#pragma once

#include "platform/services.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Conformance {

/// A last error that no service sets: a call that leaves it alone is shown with "last error kept".
inline constexpr DWORD UNTOUCHED = 4711;

/// For a wait that ends long before, or has gone wrong.
inline constexpr DWORD LONG_TIME = 60000;

inline HANDLE badHandle()
{
    return reinterpret_cast<HANDLE>(std::intptr_t{-1});
}

/// What the following lines begin with.
void table(char const *name);
void scene(std::string const &name);

// A call's line. They are to be called by the macros below, at once after the call.
BOOL showTruth(char const *call, bool result);
DWORD showWait(char const *call, DWORD result);
HANDLE showHandle(char const *call, HANDLE result);
void showNumber(char const *call, long long result);
/// A line about what came of several calls.
void showText(std::string const &what, std::string const &text);
void showCount(std::string const &what, long long count);

#define TRUTH(...) (SetLastError(UNTOUCHED), showTruth(#__VA_ARGS__, (__VA_ARGS__) != 0))
#define WAIT(...) (SetLastError(UNTOUCHED), showWait(#__VA_ARGS__, (__VA_ARGS__)))
#define MADE(...) (SetLastError(UNTOUCHED), showHandle(#__VA_ARGS__, (__VA_ARGS__)))
#define NUMBER(...)                                                                                \
    (SetLastError(UNTOUCHED), showNumber(#__VA_ARGS__, static_cast<long long>(__VA_ARGS__)))

/// A thread of the services', whose end its destructor awaits.
class Runner
{
public:
    explicit Runner(std::function<DWORD()> body);
    ~Runner();
    Runner(Runner const &) = delete;
    Runner &operator=(Runner const &) = delete;

    HANDLE handle() const { return _thread; }
    DWORD number() const { return _number; }
    DWORD exitCode() const;
    void join() const;

private:
    std::function<DWORD()> _body;
    DWORD _number = 0;
    HANDLE _thread;
};

/// Calls the body on another thread and waits for its end.
void elsewhere(std::function<void()> body);

/// Waits for what surely comes.
void await(HANDLE);

/// Closes its handle at its end.
class Owned
{
public:
    explicit Owned(HANDLE handle) : _handle(handle) {}
    ~Owned() { CloseHandle(_handle); }
    Owned(Owned const &) = delete;
    Owned &operator=(Owned const &) = delete;

    operator HANDLE() const { return _handle; }

private:
    HANDLE _handle;
};

void showMutexes();
void showEvents();
void showSemaphores();
void showTimers();
void showNames();
void showHandles();
void showThreads();
void showTermination();
void showPriorities();
void showSlots();
void showSections();
void showAddresses();
void showMemory();
void showIdentifiers();
void showSystem();

/// All tables.
void show();

} // namespace Conformance
