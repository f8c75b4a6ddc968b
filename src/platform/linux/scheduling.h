// Priority classes and levels, and what they are to the system's scheduler.
#pragma once

#include "platform/linux/object.h"

namespace ZvPlatform::Linux {

/// Guards what the system was last told of each thread. Taken after a queue.
extern constinit Lock schedulingLock;

/// The thread that is being made will inherit the scheduling of the calling one.
void inheritScheduling(Thread &child, Thread const &parent);

/// A thread with these attributes will have the processors of the process, and not those of the calling thread.
void giveProcessors(pthread_attr_t &);

/// The calling thread, made by CreateThread, begins: from here on others may change its scheduling.
void beginScheduling(Thread &);
/// It ends: from here on nobody may.
void endScheduling(Thread &);

} // namespace ZvPlatform::Linux
