// error: ignoring return value

#pragma GCC diagnostic error "-Wunused-result"

#include <resmgt/locks.h>

#include <chrono>

void use(Zv::LkEvent const &event)
{
    event.timedWait(std::chrono::milliseconds(40));
}
