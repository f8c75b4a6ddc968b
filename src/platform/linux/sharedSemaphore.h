// Semaphores with names, which work between processes.
//
// The count is in a file under /dev/shm, in a folder of the user. Each process that has a handle
// holds a shared lock on the file. The kernel drops that lock when the process ends. If a process
// finds a file without a lock, the semaphore is dead, however its last user ended. A lock on the
// folder serialises all opening and closing. If another process keeps that lock for some seconds,
// opening fails with ERROR_TIMEOUT.
//
// A name is valid for the processes of one user that see the same /dev/shm, which is that of a
// machine or a container. Waiters are not served in the order in which they began to wait: a post
// wakes all of them, and each unit goes to the first that takes it. The child of a fork is a
// separate user of each semaphore that its parent has open, provided that /proc exists.
#pragma once

#include "platform/linux/object.h"

namespace ZvPlatform::Linux {

HANDLE createShared(char const *name, LONG initialCount, LONG maximumCount);
HANDLE openShared(char const *name);
BOOL releaseShared(Object *, std::uint32_t count, LONG *previousCount);

} // namespace ZvPlatform::Linux
