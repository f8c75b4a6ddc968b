#include "resmgt/memoryBuffers/mbUntoldUses.private.h"

#include "resmgt/memoryBuffers/mbBufferImp.h"
#include "resmgt/memoryBuffers/mbUnloadStrategy.h"
#include "zvbase/platform/shared.h"

#include <algorithm>

namespace Zv {

using namespace ZvPlatform;

void MbUntoldUses::note(MbBufferImp *buffer)
{
    MbBufferImp *first = _noted.load(Order::RELAXED);
    do {
        buffer->_nextNoted = first;
    } while (!_noted.compare_exchange_strong(first, buffer, Order::RELEASE, Order::RELAXED));
}

std::uint64_t MbUntoldUses::tellTime(std::uint64_t former)
{
    if (former == _lastTime.load(Order::RELAXED))
        return former;
    return _lastTime.fetch_add(1, Order::RELAXED) + 1;
}

void MbUntoldUses::tell(MbUnloadStrategy &strategy)
{
    if (!_noted.load(Order::RELAXED)) [[likely]]
        return;
    _unlocked.clear();
    for (MbBufferImp *next = _noted.exchange(nullptr, Order::ACQUIRE); next;) {
        MbBufferImp &buffer = *next;
        // Read first: as soon as the bit is cleared, a guard may note the buffer again.
        next = buffer._nextNoted;
        if (takeNote(buffer))
            _unlocked.push_back({buffer._lastUse.load(Order::RELAXED), &buffer});
        else
            strategy.removeBuffer(&buffer);
    }
    std::sort(_unlocked.begin(), _unlocked.end(),
              [](Unlocked const &a, Unlocked const &b) { return a.time < b.time; });
    for (Unlocked const &unlocked : _unlocked) {
        strategy.removeBuffer(unlocked.buffer);
        strategy.insertBuffer(unlocked.buffer);
    }
}

/// Returns true if the buffer is unlocked. If it is locked, its last guard will have to tell the
/// manager.
bool MbUntoldUses::takeNote(MbBufferImp &buffer)
{
    std::uint64_t word = buffer._word.load(Order::RELAXED);
    std::uint64_t taken;
    do {
        bool const isUnlocked = MbWord::modeOf(word) == MbWord::LOADED;
        taken = word & ~(isUnlocked ? MbWord::IS_NOTED : MbWord::IS_NOTED | MbWord::IN_STRATEGY);
    } while (!buffer._word.compare_exchange_strong(word, taken, Order::ACQ_REL, Order::RELAXED));
    return MbWord::modeOf(taken) == MbWord::LOADED;
}

} // namespace Zv
