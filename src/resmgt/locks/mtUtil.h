// Questions to the operating system about processors, scheduling and memory (applications).
#pragma once

#include "resmgt/export.h"

namespace Zv {

/// Asks the operating system about processors, scheduling and memory.
///
///     int const nbWorkers = Zv::MtUtil::getNbProcessors();
///
/// **Threads**: thread-safe. Only `printSysConf` and `testWritable` may block: they write output.
class ZVRESMGT_EXPORT MtUtil
{
public:
    /// Returns the number of processors that are in use in the machine. The process may be limited
    /// to fewer.
    static int getNbProcessors();
    /// Offers the processor to another thread once.
    static void yield();
    /// Returns false: new threads are not scheduled first in, first out by default.
    static bool isFifoScheduledDefault() { return false; }
    /// Has no effect.
    static void setFifoScheduledDefault(bool) {}
    /// Returns true: threads compete with all threads of the system.
    static bool isSystemScopeDefault() { return true; }
    /// Has no effect.
    static void setSystemScopeDefault(bool) {}
    /// Returns true, for every user.
    static bool isRoot() { return true; }
    /// Locks nothing and reports that at trace level "MtUtil".
    static void lockProcessMemory();
    /// Has no effect.
    static void unlockProcessMemory() {}
    /// Writes the system's description of itself to the trace, one line for each value.
    static void printSysConf();
    /// Tests whether `size` bytes at `address` can be read, by writing them to a scratch file.
    /// Returns 1 if they can, 0 if they cannot or no file could be opened, and -1 after another
    /// failure, which `perror` has reported. Despite the name, nothing is written to `address`.
    static int testWritable(void const *address, int size);

    MtUtil() = delete;
};

} // namespace Zv
