// Semaphores with names, which work between processes.
//
// The count lives in a file under /dev/shm, in a folder of the user's own. Each process that has a handle holds a
// shared file lock, which the kernel drops with the process: who finds the file without a holder knows that the
// semaphore has died, however its last user ended. All opening and closing is serialised by a lock on the folder.
//
// The reach of a name is the user and the machine's (or container's) /dev/shm. Waiters of several processes are not
// served in the order in which they came: a post wakes them all, and one of them takes the unit. A child of a fork is a
// user of its own of each semaphore that its parent has open, as long as /proc is there.
#pragma once

#include "platform/linux/object.h"

namespace ZvPlatform::Linux {

HANDLE createShared(char const *name, LONG initialCount, LONG maximumCount);
HANDLE openShared(char const *name);
BOOL releaseShared(Object *, std::uint32_t count, LONG *previousCount);

} // namespace ZvPlatform::Linux
