// Simulated kernel: the functions of linux/kernel.h on the deterministic scheduler.
//
// Each call that other threads can notice is a point of the schedule. A signal reaches a thread at
// one of its points, or ends its wait. Waits may end without a cause if the strategy chooses so.
// Names are those of this process alone.
#pragma once

#include "platform/common/clock.h"
#include "platform/scheduler/task.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace ZvPlatform::Linux {

enum class Scope
{
    PRIVATE,
    SHARED
};

} // namespace ZvPlatform::Linux

namespace ZvPlatform::Linux::Kernel {

// linux/kernel.h describes the functions.

struct Task;

// ---- futexes and time ---------------------------------------------------------------------------

int wait(void const *word, std::uint32_t value, Instant deadline, Scope scope);
void wake(void const *word, int count, Scope scope);
Instant now();
Instant date();
void sleep(long nanoseconds);
void yield();
/// Lets a little time pass, so that a thread does not spin without an end.
void pause();
inline void completeMemory() {}
bool hasTrustedCounter();
std::uint64_t readCounter();

// ---- threads ------------------------------------------------------------------------------------

using ThreadId = Task *;
using ProcessorSet = cpu_set_t;
using ThreadFunction = void *(*)(void *);
struct EndKey
{};

bool makeEndKey(EndKey &key, void (*atEnd)(void *));
void setEndValue(EndKey key, void *value);
std::size_t stackOverhead();
int createThread(ThreadId &id, std::size_t stack, ProcessorSet const *processors,
                 ThreadFunction function, void *argument);
ThreadId currentThread();
void detach(ThreadId id);
void join(ThreadId id);
void setName(ThreadId id, char const *name);
[[noreturn]] void endThread();
std::uint32_t threadNumber();
std::uint32_t processNumber();
bool sendSignal(std::uint32_t thread, int signal);
void atFork(void (*before)(), void (*inParent)(), void (*inChild)());
bool isFree(int signal);
bool handle(int signal, void (*handler)(int));
void unblock(int signal);

// ---- scheduling ---------------------------------------------------------------------------------

bool setPolicy(std::uint32_t thread, int policy, int priority);
int getPolicy(std::uint32_t thread);
int getPriority(std::uint32_t thread);
bool setNice(std::uint32_t thread, int nice);
int getNice(std::uint32_t thread);
std::uint64_t getNiceLimit();
bool getProcessors(std::uint32_t thread, ProcessorSet &set);
bool setProcessors(std::uint32_t thread, ProcessorSet const &set);
int currentProcessor();
long nbConfiguredProcessors();
long nbOnlineProcessors();
unsigned processorSignature();

// ---- memory -------------------------------------------------------------------------------------

std::size_t pageSize();
void *reserve(std::size_t size);
bool hasMemoryForStack(std::size_t size);

// ---- names that processes share -----------------------------------------------------------------

using Status = struct stat;

unsigned userNumber();
int makeFolder(char const *path, unsigned mode);
int changeMode(char const *path, unsigned mode);
int changeMode(int folder, char const *name, unsigned mode);
int changeMode(int file, unsigned mode);
int getStatus(char const *path, Status &status);
int getStatus(int file, Status &status);
int openFile(char const *path, int flags);
int openFile(int folder, char const *name, int flags, unsigned mode = 0);
void closeFile(int file);
void removeFile(int folder, char const *name);
int setSize(int file, std::size_t size);
int lockFile(int file, int operation);
void *mapFile(int file, std::size_t size);
void unmapFile(void *memory, std::size_t size);
/// Calls `what` with the index of each file until it returns null.
char const *nameOfFile(unsigned index);

template <class What>
void forEachFile(int, What what)
{
    for (unsigned i = 0; char const *name = nameOfFile(i); ++i)
        if (*name)
            what(name);
}

// ---- random bytes, and the system's version -----------------------------------------------------

ssize_t getRandom(void *bytes, std::size_t size);

struct Version
{
    char release[16];
    char version[16];
};

bool getVersion(Version &version);

} // namespace ZvPlatform::Linux::Kernel
