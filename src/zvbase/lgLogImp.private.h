// State that the parts of the log share: locks, registry and output.
#pragma once

#include "zvbase/baseLock.private.h"
#include "zvbase/lgClock.private.h"
#include "zvbase/lgLog.h"
#include "zvbase/platform/shared.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace Zv {

/// The locks of the log and what they guard. Take them in this order: the reading lock, the
/// registry lock, the locks of a registry or an observer.
class LgLogImp
{
public:
    /// Held while queues are read, deleted or written out, which may take as long as the output
    /// does.
    static BaseLock _readingLock;
    /// Held while the installed registry is read or changed. Never held while text is written.
    static BaseLock _registryLock;

    /// Incremented if a queue is deleted or the registry changes. A reader then forgets its list of
    /// queues.
    static std::uint64_t _generation ZV_GUARDED_BY(_readingLock);
    /// The number of the installed registry. It is read without the lock.
    static ZvPlatform::Shared<std::uint64_t> _registration;
    static LgClock _clock ZV_GUARDED_BY(_readingLock);

    static LgRegistry &getRegistryInForce() ZV_REQUIRES(_registryLock);
    static bool isOwnRegistryInForce() ZV_REQUIRES(_registryLock);
};

/// The output that `LgTrace` has selected.
class LgOutput
{
public:
    /// Returns true while the output runs, so that what it writes to the log itself can be dropped.
    static bool isBusy() ZV_REQUIRES(LgLogImp::_readingLock);
    /// Writes whole lines.
    static void write(char const *text, std::size_t length) ZV_REQUIRES(LgLogImp::_readingLock);
    static void flush() ZV_REQUIRES(LgLogImp::_readingLock);
    /// Appends the moment of a line, in the form in which it precedes the line.
    static void appendMoment(std::string &text, double seconds);
};

} // namespace Zv
