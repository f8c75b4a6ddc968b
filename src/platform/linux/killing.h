// Ends a thread wherever it is: wakes it from what it sleeps on, and sends it a signal.
#pragma once

#include "platform/linux/thread.h"

namespace ZvPlatform::Linux {

/// Makes the calling thread, which has just begun, accept the signal.
void acceptKilling();

/// Sends the signal that kills. Installs its handler first, if that has not happened yet. Returns
/// false if the system refuses.
///
/// With the GNU C library on x86-64, i386 and AArch64, the signal is 33, one of that library's own.
/// The library's functions neither block nor give away this signal, so it reaches a thread that has
/// blocked all others. A signal that this layer has not sent is passed on to the library's handler.
/// With the thread sanitizer, which must know every handler, and in all other cases it is the
/// highest real-time signal below SIGRTMAX that has no handler when the signal is first needed. If
/// all have one, no signal is sent, and a thread that computes ends at its next service.
bool sendKill(std::uint32_t kernelId);

/// Guards the choice of the signal.
extern constinit Lock signalLock;

/// Wakes a thread that sleeps inside a service. A thread that is about to sleep may miss the
/// wake-up, so the caller must repeat the call until the thread has ended.
void wakeVictim(Thread &);

} // namespace ZvPlatform::Linux
