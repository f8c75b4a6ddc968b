// How a thread that is to end is reached: through what it sleeps on, and by a signal.
#pragma once

#include "platform/linux/thread.h"

namespace ZvPlatform::Linux {

/// Prepares the calling thread, which begins, for the signal.
void acceptKilling();

/// Takes the signal, if that has not happened yet, and sends it. False if the system refuses.
///
/// With the GNU C library the signal is one of the library's own, 33: the library's functions neither block it nor give
/// it away, so it reaches a thread whatever that has blocked. What is not meant for us goes on to the C library's
/// handler. Under the thread sanitizer, which has to know of every handler, and with other C libraries it is the
/// highest real-time signal that is free when the first thread is made.
bool sendKill(std::uint32_t kernelId);

/// Guards the choice of the signal.
extern constinit Lock signalLock;

/// Wakes a thread that sleeps inside a service. A sleep that has not begun yet may miss it, so it is called until the
/// thread has ended.
void wakeVictim(Thread &);

} // namespace ZvPlatform::Linux
