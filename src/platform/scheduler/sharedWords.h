// Words that threads share, between the scheduler and the memory model.
#pragma once

#include "platform/scheduler/task.h"
#include "platform/scheduler/weakMemory.h"

namespace ZvPlatform::Simulated {

extern constinit WeakMemory weakMemory;

/// Returns the number of a thread in the memory model.
inline unsigned indexOf(Task const &thread)
{
    return thread.position - 1;
}

/// Forgets what was published at an object of the services, or of the former one at its address.
inline void forgetPublished(void const *object)
{
    if (isRunning())
        weakMemory.forget(object);
}

/// Appends the step and the thread of an operation, and its place if the run is traced.
void append(char *&text, char *end, WeakMemory::Origin const &);

/// Appends the latest loads that have read an older value, and the stores that they have not seen.
void listOlderValues(char *&text, char *end);

} // namespace ZvPlatform::Simulated
