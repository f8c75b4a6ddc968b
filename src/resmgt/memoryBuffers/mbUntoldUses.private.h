// The word of a buffer that guards change without a lock, and the uses that they note.
#pragma once

#include "zvbase/containers.h"
#include "zvbase/platform/shared.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

class MbBufferImp;
class MbUnloadStrategy;

/// Parts of the word of a buffer, `MbBufferImp::_word`. It has the number of references and, while
/// it is open, the state and the number of holds, so that a guard takes a hold and a reference with
/// one interlocked operation. If the word is closed, `MbBufferImp::_state` and `_lockCount` are
/// valid instead, and the mutex guards them.
namespace MbWord {

/// The states in which the word may be open.
enum Mode : std::uint64_t
{
    LOADED = 0,
    RD_LOCKED = 1,
    WR_LOCKED = 2,
    BEING_UNLOCKED = 3,    ///< the last guard calls the protocol
    UNLOADED = 4,          ///< a guard loads the buffer by the word alone
    BEING_RD_RELOADED = 5, ///< a read guard gets memory and calls the protocol
    BEING_WR_RELOADED = 6, ///< a write guard gets memory and calls the protocol
    BEING_UNLOADED = 7     ///< the manager calls the protocol
};

inline constexpr std::uint64_t MODE = 7;
inline constexpr std::uint64_t CLOSED = 8;
/// The manager has the buffer in its strategy. If the buffer is locked, the strategy need not be
/// told before the manager seeks a buffer to evict.
inline constexpr std::uint64_t IN_STRATEGY = 16;
/// The buffer is noted in `MbUntoldUses`, or the guard that has set this bit is about to note it.
inline constexpr std::uint64_t IS_NOTED = 32;
inline constexpr std::uint64_t HOLD = 1 << 8;
inline constexpr std::uint64_t HOLDS = 0xFFFFFF00;
inline constexpr std::int32_t MAXIMUM_OF_HOLDS = HOLDS / HOLD;

constexpr Mode modeOf(std::uint64_t word)
{
    return static_cast<Mode>(word & MODE);
}
constexpr bool isClosed(std::uint64_t word)
{
    return (word & CLOSED) != 0;
}
constexpr bool isLocked(std::uint64_t word)
{
    return modeOf(word) == RD_LOCKED || modeOf(word) == WR_LOCKED;
}
/// Returns true if a thread moves the buffer between `UNLOADED` and a state with memory.
constexpr bool isBeingMoved(std::uint64_t word)
{
    return modeOf(word) > UNLOADED;
}
constexpr std::uint64_t withMode(std::uint64_t word, Mode mode)
{
    return (word & ~MODE) | mode;
}

} // namespace MbWord

/// The uses of buffers that the strategy of their manager has not been told yet. If a manager and
/// its strategy are those of the library, nothing sees when the strategy is told that a buffer was
/// locked and unlocked. Then guards only note the buffer here, and the manager tells the strategy
/// before it asks it for anything.
///
/// **Threads**: `note` and `tellTime` are thread-safe. The manager's mutex guards the others.
class MbUntoldUses
{
public:
    MbUntoldUses() : _noted(nullptr), _lastTime(1) {}
    MbUntoldUses(MbUntoldUses const &) = delete;
    MbUntoldUses &operator=(MbUntoldUses const &) = delete;

    /// Notes a buffer whose bit `IS_NOTED` the caller has set. The caller holds the buffer.
    void note(MbBufferImp *buffer);
    /// Returns a time for a buffer that is being unlocked. It is later than all times before,
    /// unless the buffer was the last one to ask. `former` is its former time.
    std::uint64_t tellTime(std::uint64_t former);

    /// Allocates memory, so that `tell` does not throw if there are no more than `nbBuffers`
    /// buffers.
    void reserve(std::size_t nbBuffers)
    {
        if (_unlocked.capacity() < nbBuffers)
            _unlocked.reserve(2 * nbBuffers);
    }
    /// Makes the strategy such as if it had been told of each hold and of each unlock at once.
    void tell(MbUnloadStrategy &strategy);

private:
    struct Unlocked
    {
        std::uint64_t time;
        MbBufferImp *buffer;
    };

    static bool takeNote(MbBufferImp &buffer);

    ZvPlatform::Shared<MbBufferImp *> _noted;
    ZvPlatform::Shared<std::uint64_t> _lastTime;
    Vector<Unlocked> _unlocked;
};

} // namespace Zv
