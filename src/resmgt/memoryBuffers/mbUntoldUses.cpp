#include "resmgt/memoryBuffers/mbUntoldUses.private.h"

#include "resmgt/memoryBuffers/mbBufferImp.h"
#include "resmgt/memoryBuffers/mbUnloadStrategy.h"
#include "zvbase/platform/interlocked.h"

#include <algorithm>

namespace Zv {

using namespace ZvPlatform;

void MbUntoldUses::note(MbBufferImp *buffer)
{
    MbBufferImp *first = Interlocked::loadRelaxed(_noted);
    do {
        buffer->_nextNoted = first;
    } while (!Interlocked::compareExchange(_noted, first, buffer));
}

std::uint64_t MbUntoldUses::tellTime(std::uint64_t former)
{
    if (former == Interlocked::loadRelaxed(_lastTime))
        return former;
    return Interlocked::increment(_lastTime);
}

void MbUntoldUses::tell(MbUnloadStrategy &strategy)
{
    if (!Interlocked::loadRelaxed(_noted)) [[likely]]
        return;
    _unlocked.clear();
    for (MbBufferImp *next = Interlocked::exchange<MbBufferImp *>(_noted, nullptr); next;) {
        MbBufferImp &buffer = *next;
        // Read first: as soon as the bit is cleared, a guard may note the buffer again.
        next = buffer._nextNoted;
        if (takeNote(buffer))
            _unlocked.push_back({Interlocked::loadRelaxed(buffer._lastUse), &buffer});
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
    std::uint64_t word = Interlocked::loadRelaxed(buffer._word);
    std::uint64_t taken;
    do {
        bool const isUnlocked = MbWord::modeOf(word) == MbWord::LOADED;
        taken = word & ~(isUnlocked ? MbWord::IS_NOTED : MbWord::IS_NOTED | MbWord::IN_STRATEGY);
    } while (!Interlocked::compareExchange(buffer._word, word, taken));
    return MbWord::modeOf(taken) == MbWord::LOADED;
}

} // namespace Zv
