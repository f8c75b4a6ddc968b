#include "resmgt/threads/mtThreadStart.private.h"

#include "resmgt/threads/mtThreadWindows.private.h"

namespace Zv {

void startWithoutMeeting(MtThread &thread)
{
    // The application may have a thread class of its own.
    if (auto * const own = dynamic_cast<MtThreadWindows *>(&thread))
        own->startWithoutMeeting();
    else
        thread.start();
}

} // namespace Zv
