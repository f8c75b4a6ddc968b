// Locks and pulses: a decoder passes pictures to a display through a slot with room for one.
//
// A mutex guards the slot, and a pulse wakes the other thread after each change. No thread polls,
// and no picture is lost. The locks work on threads of the standard library, too.
//
// Prints:
//
//     decoding 3 pictures
//     picture 1
//     picture 2
//     picture 3
//     the display has ended

#include <resmgt/locks.h>
#include <zvbase/zvbase.h>

#include <iostream>
#include <optional>
#include <stop_token>
#include <thread>
#include <utility>

using namespace Zv;

namespace {

/// Room for one picture between two threads.
class PictureSlot
{
public:
    /// Blocks while there is a picture in the slot.
    void put(int picture)
    {
        LkGuard const guard(_mutex);
        while (_picture)
            _changed.waitNextPulse(guard);
        _picture = picture;
        _changed.pulse();
    }
    /// Blocks until there is a picture. Returns nothing if the slot is empty and closed.
    std::optional<int> take()
    {
        LkGuard const guard(_mutex);
        while (!_picture && !_isClosed)
            _changed.waitNextPulse(guard);
        _changed.pulse();
        return std::exchange(_picture, std::nullopt);
    }
    void close()
    {
        LkGuard const guard(_mutex);
        _isClosed = true;
        _changed.pulse();
    }

private:
    LkMutex const _mutex{"picture slot"};
    LkPulse const _changed{"picture slot changed", LkPulse::WAKE_ALL};
    std::optional<int> _picture ZV_GUARDED_BY(_mutex);
    bool _isClosed ZV_GUARDED_BY(_mutex) = false;
};

void show(PictureSlot &slot, std::stop_token const &stop)
{
    std::stop_callback const closing(stop, [&slot] { slot.close(); });
    while (auto const picture = slot.take())
        std::cout << "picture " << *picture << '\n';
    std::cout << "the display has ended\n";
}

} // namespace

int main()
{
    InPackageScope const packages; // first in every application
    std::cout << "decoding 3 pictures\n";
    PictureSlot slot;
    std::jthread const display([&slot](std::stop_token const &stop) { show(slot, stop); });
    for (int picture = 1; picture <= 3; ++picture)
        slot.put(picture);
} // the thread's destructor closes the slot, also after an exception, and waits for the display
