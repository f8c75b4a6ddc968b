// Prints the answers of the services line by line, in the same words on every system.
//
// A line has the table, the scene, the call as it is written in the source, its result and its last
// error. Nothing in it depends on time, addresses or the machine. A race is shown by what holds in
// each of its orders.
#pragma once

#include "platform/services.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Conformance {

/// A last error that no service sets. If a call leaves it alone, the line says "last error kept".
inline constexpr DWORD UNTOUCHED = 4711;

/// A time-out for waits that end long before, unless something has gone wrong.
inline constexpr DWORD LONG_TIME = 60000;

inline HANDLE badHandle()
{
    return reinterpret_cast<HANDLE>(std::intptr_t{-1});
}

/// Set what the following lines begin with.
void table(char const *name);
void scene(std::string const &name);

// Print the line of a call. The macros below call them immediately after the call.
BOOL showTruth(char const *call, bool result);
DWORD showWait(char const *call, DWORD result);
HANDLE showHandle(char const *call, HANDLE result);
void showNumber(char const *call, long long result);
/// Prints a line about the result of several calls.
void showText(std::string const &what, std::string const &text);
void showCount(std::string const &what, long long count);

#define TRUTH(...) (SetLastError(UNTOUCHED), showTruth(#__VA_ARGS__, (__VA_ARGS__) != 0))
#define WAIT(...) (SetLastError(UNTOUCHED), showWait(#__VA_ARGS__, (__VA_ARGS__)))
#define MADE(...) (SetLastError(UNTOUCHED), showHandle(#__VA_ARGS__, (__VA_ARGS__)))
#define NUMBER(...)                                                                                \
    (SetLastError(UNTOUCHED), showNumber(#__VA_ARGS__, static_cast<long long>(__VA_ARGS__)))

/// A thread of the services. The destructor waits for its end.
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

/// Calls `body` on another thread and waits for its end.
void elsewhere(std::function<void()> body);

/// Waits for an object that is certain to be signalled.
void await(HANDLE);

/// Handle that is closed by the destructor.
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

/// Prints all tables.
void show();

} // namespace Conformance
