// What the operating system offers about processors, scheduling and memory.
#pragma once

#include "resmgt/export.h"

namespace Zv {

/// Questions to the system. Any thread may call; only `printSysConf` and `testWritable` may block, on output.
class ZVRESMGT_EXPORT MtUtil
{
public:
    /// Those of the machine that are in use, whichever of them this process may run on.
    static int getNbProcessors();
    /// Gives the processor away once.
    static void yield();
    /// Always false: new threads are not scheduled first in, first out by default.
    static bool isFifoScheduledDefault() { return false; }
    /// No effect.
    static void setFifoScheduledDefault(bool) {}
    /// Always true: threads compete with all threads of the system.
    static bool isSystemScopeDefault() { return true; }
    /// No effect.
    static void setSystemScopeDefault(bool) {}
    /// Always true, whoever runs the process.
    static bool isRoot() { return true; }
    /// Locks nothing and says so at trace level "MtUtil".
    static void lockProcessMemory();
    /// No effect.
    static void unlockProcessMemory() {}
    /// Writes what the system says about itself to the trace, one line a value.
    static void printSysConf();
    /// Whether `size` bytes at `address` can be read; finds out by writing them to a scratch file. 1 yes, 0 no or no
    /// file could be opened, -1 another failure, reported by `perror`.
    static int testWritable(void const *address, int size);

    MtUtil() = delete;
};

} // namespace Zv
