// Where beats come from.
#pragma once

#include "resmgt/export.h"

#include <cstdint>
#include <iosfwd>

namespace Zv {

/// A source of beats: it can be started and stopped, and a thread can block on it until the next beat. Derive from it
/// to pace threads by something else than the clock (`SeSourceClock`), a card's interrupt for instance.
class ZVRESMGT_EXPORT SeSourceProtocol
{
public:
    virtual ~SeSourceProtocol() noexcept(false) = 0;
    /// Called once, on the generator's thread, before the first wait. Must not block: the generator's mutex is held, so
    /// that all calls of `SeSyncEngine` that concern this source wait for it, and with them those for other sources.
    virtual void start() = 0;
    /// Called once, on the generator's thread, after the last wait. Must not block, as `start`.
    virtual void stop() = 0;
    /// Blocks until the next beat and returns the running count: 32 bits, never 0 on the first call. On the
    /// generator's thread, which has a stack of 64 KiB. No lock is held.
    virtual std::uint32_t waitSync() = 0;
    /// Beats per second. Any thread.
    virtual double getRate() = 0;
    /// Becomes the name of the generator's thread; valid as long as the source.
    virtual char const *getName() = 0;
    /// Writes the source. Called under the generator's mutex, and must not block.
    virtual std::ostream &dump(std::ostream &stream) = 0;

protected:
    SeSourceProtocol() = default;
    SeSourceProtocol(SeSourceProtocol const &) = default;
    SeSourceProtocol &operator=(SeSourceProtocol const &) = default;
};

/// Calls `dump`.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream, SeSourceProtocol &source);

} // namespace Zv
