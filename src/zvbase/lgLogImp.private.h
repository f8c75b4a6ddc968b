// What the parts of the log share.
#pragma once

#include "zvbase/baseLock.private.h"
#include "zvbase/lgLog.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace Zv {

/// The locks of the log and what they guard. Order: the reading lock, the registry lock, then what a registry or an
/// observer locks for itself.
class LgLogImp
{
public:
    /// Held while queues are read, deleted or written out. May be held for as long as the output takes.
    static BaseLock _readingLock;
    /// Held while the registry in force is looked up and changed, never while text is written.
    static BaseLock _registryLock;

    /// Goes up when a queue dies or the registry changes: what a reader remembers of the queues is void.
    static std::uint64_t _generation ZV_GUARDED_BY(_readingLock);
    /// The number of the registry in force; read without the lock.
    static std::uint64_t _registration;

    static LgRegistry &getRegistryInForce() ZV_REQUIRES(_registryLock);
    static bool isOwnRegistryInForce() ZV_REQUIRES(_registryLock);
};

/// The device that `LgTrace` chooses.
class LgOutput
{
public:
    /// Whether the output itself writes to the log.
    static bool isBusy() ZV_REQUIRES(LgLogImp::_readingLock);
    /// Whole lines.
    static void write(char const *text, std::size_t length) ZV_REQUIRES(LgLogImp::_readingLock);
    static void flush() ZV_REQUIRES(LgLogImp::_readingLock);
    /// The moment of a line, as it stands in front of it.
    static void appendStamp(std::string &text, std::uint64_t stamp);
};

} // namespace Zv
