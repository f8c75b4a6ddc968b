#include "platform/linux/sharedSemaphore.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

namespace ZvPlatform::Linux {

/// The memory of a semaphore that the processes share.
struct SharedSegment
{
    /// The count is in the lower half, the number of sleepers in the upper half. A post therefore
    /// learns of sleepers by the access that adds its units.
    Shared<std::uint64_t> state;
    std::uint32_t maximum;
    char file[256];
};

namespace {

constexpr std::uint64_t ONE_WAITER = std::uint64_t{1} << 32;

std::uint32_t countOf(std::uint64_t state)
{
    return static_cast<std::uint32_t>(state);
}

DWORD errorOf(int error)
{
    switch (error) {
    case EACCES:
    case EPERM:
    case ELOOP:
        return ERROR_ACCESS_DENIED;
    case ENOENT:
        return ERROR_FILE_NOT_FOUND;
    case ENOSYS:
    case EINVAL:
        return ERROR_NOT_SUPPORTED;
    case EWOULDBLOCK:
        return ERROR_TIMEOUT;
    default:
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int lockFile(int file, int operation)
{
    int result;
    do
        result = Kernel::lockFile(file, operation);
    while (result != 0 && errno == EINTR);
    return result;
}

/// Takes a lock of a file. If another process keeps the lock, because it is stopped or uses the file
/// for something else, fails with EWOULDBLOCK after a few seconds. Fails at once if the calling
/// thread is killed.
int awaitFileLock(int file, int operation)
{
    constexpr Instant PATIENCE = 5'000 * MILLISECOND;
    constexpr long FIRST = 50'000, LONGEST = 10'000'000; // nanoseconds
    long pause = FIRST;
    for (Instant waited = 0; lockFile(file, operation | LOCK_NB) != 0; waited += pause) {
        if (errno != EWOULDBLOCK)
            return -1;
        if (waited >= PATIENCE || currentThread().dying.load(Order::RELAXED)) {
            errno = EWOULDBLOCK;
            return -1;
        }
        Kernel::sleep(pause);
        pause = std::min(2 * pause, LONGEST);
    }
    return 0;
}

/// The user's folder, locked while the object lives.
class Folder
{
public:
    Folder()
    {
        char path[64];
        std::snprintf(path, sizeof path, "/dev/shm/zvresmgt-%u", Kernel::userNumber());
        if (Kernel::makeFolder(path, 0700) == 0 || (errno == EEXIST && isBarred(path)))
            Kernel::changeMode(path, 0700); // the process's mask may have removed bits
        else if (errno != EEXIST)
            return;
        int const folder = Kernel::openFile(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
        if (folder < 0)
            return;
        // Any user can make a folder of that name. Only a folder of the user's own can be trusted.
        Kernel::Status status;
        bool const own = Kernel::getStatus(folder, status) == 0 &&
                         status.st_uid == Kernel::userNumber() && (status.st_mode & 022) == 0;
        if (!own)
            errno = EACCES;
        if (own && awaitFileLock(folder, LOCK_EX) == 0) {
            _folder = folder;
            return;
        }
        int const error = errno;
        Kernel::closeFile(folder);
        errno = error;
    }
    ~Folder()
    {
        if (_folder < 0)
            return;
        // A child that was forked meanwhile shares the lock, and would keep it if the descriptor
        // were only closed.
        lockFile(_folder, LOCK_UN);
        Kernel::closeFile(_folder);
    }

    Folder(Folder const &) = delete;
    Folder &operator=(Folder const &) = delete;

    explicit operator bool() const { return _folder >= 0; }
    int get() const { return _folder; }

private:
    /// Returns whether the folder is the user's own and yet closed to its owner. A process that
    /// ended before its `chmod` leaves such a folder.
    static bool isBarred(char const *path)
    {
        Kernel::Status status;
        bool const barred = Kernel::getStatus(path, status) == 0 && S_ISDIR(status.st_mode) &&
                            status.st_uid == Kernel::userNumber() && (status.st_mode & 0777) < 0700;
        errno = EEXIST;
        return barred;
    }

    int _folder = -1;
};

/// Removes the files of processes that ended without closing them. Does so once per process, which
/// limits how many files can gather.
void sweep(Folder const &folder)
{
    static constinit bool isDone = false; // under `namesLock`
    if (std::exchange(isDone, true))
        return;
    Kernel::forEachFile(folder.get(), [&](char const *name) {
        int const file = Kernel::openFile(folder.get(), name, O_RDONLY | O_NOFOLLOW);
        if (file < 0)
            return;
        if (lockFile(file, LOCK_EX | LOCK_NB) == 0)
            Kernel::removeFile(folder.get(), name);
        Kernel::closeFile(file);
    });
}

/// Makes a file name from a name with any bytes. It consists of the beginning of the name, in which
/// special bytes are escaped, and a digest of the whole name.
void makeFileName(char const *name, char (&file)[256])
{
    std::size_t length = 0;
    std::uint64_t digest = 14695981039346656037u;
    for (char const *c = name; *c; ++c) {
        auto const byte = static_cast<unsigned char>(*c);
        digest = (digest ^ byte) * 1099511628211u;
        bool const plain = (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') ||
                           (byte >= 'A' && byte <= 'Z') || byte == '-' || byte == '_';
        if (length < 200)
            length += static_cast<std::size_t>(
                std::snprintf(file + length, 4, plain ? "%c" : "%%%02X", byte));
    }
    std::snprintf(file + length, sizeof file - length, ".%016llx",
                  static_cast<unsigned long long>(digest));
}

/// What a process needs to use a semaphore.
struct Opened
{
    int file = -1;
    SharedSegment *segment = nullptr;
    bool existed = false;
    int error = 0;
};

enum class Mode
{
    CREATE,
    OPEN
};

Opened openFile(Folder const &folder, char const *name, Mode mode)
{
    Opened opened;
    char file[256];
    makeFileName(name, file);
    int const flags = O_RDWR | O_NOFOLLOW | (mode == Mode::CREATE ? O_CREAT : 0);
    opened.file = Kernel::openFile(folder.get(), file, flags, 0600);
    // If the mask of the process that made the file has removed bits, its owner sets them again.
    if (opened.file < 0 && errno == EACCES && Kernel::changeMode(folder.get(), file, 0600) == 0)
        opened.file = Kernel::openFile(folder.get(), file, flags, 0600);
    if (opened.file < 0) {
        opened.error = errno;
        return opened;
    }
    if (mode == Mode::CREATE)
        Kernel::changeMode(opened.file, 0600);
    // If no process holds the file, it is new or was left by processes that died.
    bool const deserted = lockFile(opened.file, LOCK_EX | LOCK_NB) == 0;
    if (deserted && mode == Mode::OPEN) {
        Kernel::removeFile(folder.get(), file);
        opened.error = ENOENT;
    } else if (deserted && (Kernel::setSize(opened.file, 0) != 0 ||
                            Kernel::setSize(opened.file, sizeof(SharedSegment)) != 0)) {
        opened.error = errno;
    } else if (awaitFileLock(opened.file, LOCK_SH) != 0) {
        opened.error = errno;
    } else {
        opened.segment =
            static_cast<SharedSegment *>(Kernel::mapFile(opened.file, sizeof(SharedSegment)));
        if (!opened.segment)
            opened.error = errno;
    }
    opened.existed = !deserted;
    if (!opened.segment) {
        Kernel::closeFile(opened.file);
        return opened;
    }
    if (deserted)
        std::snprintf(opened.segment->file, sizeof opened.segment->file, "%s", file);
    return opened;
}

HANDLE makeShared(char const *name, Opened const &opened)
{
    Object *object = newObject(name);
    if (!object) {
        leaveShared({opened.segment, opened.file, -1});
        return nullptr;
    }
    object->shared = {opened.segment, opened.file, -1};
    return publish(object, SHARED_SEMAPHORE);
}

bool take(SharedSegment *segment)
{
    std::uint64_t state = segment->state.load(Order::RELAXED);
    while (countOf(state))
        if (segment->state.compare_exchange_weak(state, state - 1, Order::ACQUIRE, Order::RELAXED))
            return true;
    return false;
}

/// Keeps the mapping during an operation, even if the handle is closed meanwhile.
class Pin
{
public:
    explicit Pin(Object *object) : _object(object)
    {
        Queue queue(object, SHARED_SEMAPHORE);
        if (!queue)
            return;
        ++object->pins;
        _segment = object->shared.segment;
    }
    ~Pin()
    {
        if (!_segment)
            return;
        Queue queue(_object, SHARED_SEMAPHORE, Queue::CLOSED_TOO);
        --_object->pins;
    }

    Pin(Pin const &) = delete;
    Pin &operator=(Pin const &) = delete;

    SharedSegment *segment() const { return _segment; }

private:
    Object *_object;
    SharedSegment *_segment = nullptr;
};

} // namespace

HANDLE createShared(char const *name, LONG initialCount, LONG maximumCount)
{
    Service service;
    if (DWORD const error = resolveName(name))
        return refuse(error);
    Locked locked(namesLock);
    if (Object *existing = findName(name))
        return createExisting(existing, SHARED_SEMAPHORE);
    Folder const folder;
    if (!folder)
        return refuse(errorOf(errno));
    sweep(folder);
    Opened const opened = openFile(folder, name, Mode::CREATE);
    if (opened.error)
        return refuse(errorOf(opened.error));
    if (!opened.existed) {
        opened.segment->maximum = static_cast<std::uint32_t>(maximumCount);
        opened.segment->state.store(static_cast<std::uint32_t>(initialCount), Order::RELEASE);
    }
    HANDLE handle = makeShared(name, opened);
    if (handle)
        local.lastError = opened.existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS;
    return handle;
}

HANDLE openShared(char const *name)
{
    Service service;
    if (DWORD const error = resolveName(name))
        return refuse(error);
    Locked locked(namesLock);
    if (Object *existing = findName(name))
        return openExisting(existing, SHARED_SEMAPHORE);
    Folder const folder;
    if (!folder)
        return refuse(errorOf(errno));
    Opened const opened = openFile(folder, name, Mode::OPEN);
    return opened.error ? refuse(errorOf(opened.error)) : makeShared(name, opened);
}

BOOL releaseShared(Object *object, std::uint32_t count, LONG *previousCount)
{
    Pin const pin(object);
    SharedSegment *segment = pin.segment();
    if (!segment)
        return fail(ERROR_INVALID_HANDLE);
    std::uint64_t state = segment->state.load(Order::RELAXED);
    do {
        if (count > segment->maximum - countOf(state))
            return fail(ERROR_TOO_MANY_POSTS);
    } while (!segment->state.compare_exchange_weak(state, state + count, Order::RELEASE,
                                                   Order::RELAXED));
    // Wakes all sleepers. A single one could be in a process that is stopped, or that dies before
    // it has taken its unit.
    if (state >= ONE_WAITER)
        futexWake(&segment->state, INT_MAX, Scope::SHARED);
    if (previousCount)
        *previousCount = static_cast<LONG>(countOf(state));
    return TRUE;
}

DWORD waitShared(Service &service, Object *object, DWORD milliseconds)
{
    Pin const pin(object);
    SharedSegment *segment = pin.segment();
    if (!segment) {
        fail(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    if (take(segment))
        return WAIT_OBJECT_0;
    if (milliseconds == 0)
        return WAIT_TIMEOUT;
    Instant const deadline = deadlineAfter(milliseconds);
    segment->state.fetch_add(ONE_WAITER, Order::RELAXED);
    DWORD result = WAIT_OBJECT_0;
    while (service.killed() || !take(segment)) {
        if (service.killed() || (deadline != NEVER && now() >= deadline)) {
            result = WAIT_TIMEOUT;
            break;
        }
        sleepOn(service, &segment->state, 0, deadline, Scope::SHARED);
    }
    segment->state.fetch_sub(ONE_WAITER, Order::RELAXED);
    return result;
}

void leaveShared(Object::SharedState shared)
{
    Folder const folder;
    // The last user removes the file. If the folder cannot be locked, the file stays until a process
    // finds it without a holder.
    if (folder && lockFile(shared.file, LOCK_EX | LOCK_NB) == 0)
        Kernel::removeFile(folder.get(), shared.segment->file);
    Kernel::unmapFile(shared.segment, sizeof(SharedSegment));
    Kernel::closeFile(shared.file);
}

namespace {

template <class What>
void forEachShared(What what)
{
    for (std::size_t i = 0; i < objects.size(); ++i)
        if ((objects[i].word.load(Order::RELAXED) & TYPE) == SHARED_SEMAPHORE)
            what(objects[i]);
}

} // namespace

void prepareSharedForFork()
{
    forEachShared([](Object &object) {
        Queue queue(&object, SHARED_SEMAPHORE, Queue::CLOSED_TOO);
        if (!queue)
            return;
        ++object.pins; // until the fork is over
        char path[32];
        std::snprintf(path, sizeof path, "/proc/self/fd/%d", object.shared.file);
        // A file lock belongs to what `open` makes. If the child shared the parent's, an unlock in
        // one process would unlock for both.
        int const file = Kernel::openFile(path, O_RDWR);
        if (file >= 0)
            lockFile(file, LOCK_SH | LOCK_NB); // no process can hold the other kind of lock
        object.shared.childFile = file;
    });
}

void leaveSharedToChild()
{
    forEachShared([](Object &object) {
        Queue queue(&object, SHARED_SEMAPHORE, Queue::CLOSED_TOO);
        if (!queue)
            return;
        --object.pins;
        if (object.shared.childFile >= 0)
            Kernel::closeFile(std::exchange(object.shared.childFile, -1));
    });
}

void takeSharedFromParent()
{
    forEachShared([](Object &object) {
        if (object.shared.childFile >= 0)
            Kernel::closeFile(
                std::exchange(object.shared.file, std::exchange(object.shared.childFile, -1)));
    });
}

} // namespace ZvPlatform::Linux
