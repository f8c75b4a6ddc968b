// Priority classes and levels of threads, as the system's scheduler gets them.
#pragma once

#include "platform/linux/object.h"

namespace ZvPlatform::Linux {

/// Guards what the system was last told about each thread. If a thread also needs a queue, it must
/// take the queue first.
extern constinit Lock schedulingLock;

/// Records that a new thread inherits the scheduling of `parent`, which must be the calling thread.
void inheritScheduling(Thread &child, Thread const &parent);

/// A new thread has the processors of the process, not those of the calling thread. Returns whether
/// they differ, and stores those of the process.
bool findProcessorsForNewThreads(Kernel::ProcessorSet &);

/// Begins the scheduling of the calling thread, which CreateThread has made. From here on other
/// threads may change it.
void beginScheduling(Thread &);
/// Ends the scheduling of the calling thread. From here on no thread may change it.
void endScheduling(Thread &);

} // namespace ZvPlatform::Linux
