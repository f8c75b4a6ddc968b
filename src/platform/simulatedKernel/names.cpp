// Files of the simulated kernel: one folder, in memory, with one kind of file.
#include "platform/scheduler/pool.h"
#include "platform/scheduler/scheduler.h"
#include "platform/simulatedKernel/kernel.h"

#include <cstring>
#include <utility>

namespace ZvPlatform::Linux::Kernel {

using Simulated::enter;

namespace {

constexpr unsigned MAX_FILES = 32;
constexpr unsigned MAX_OPEN = 64;
constexpr std::size_t FILE_SIZE = 4096;
/// The number of the folder, and of the first open file.
constexpr int FIRST = 100;

struct File
{
    char name[256] = {}; ///< empty if the file has been removed
    bool isFolder = false;
    unsigned users = 0; ///< what is open, and mappings
    unsigned char *memory = nullptr;
};

struct Open
{
    File *file = nullptr;
    int lock = LOCK_UN;
};

constinit bool hasFolder = false;
constinit File folder = {};
constinit File files[MAX_FILES] = {};
constinit Open opened[MAX_OPEN] = {};

int fail(int error)
{
    errno = error;
    return -1;
}

Open &openOf(int file)
{
    return opened[file - FIRST];
}

File *findFile(char const *name)
{
    for (File &file : files)
        if (file.name[0] && std::strcmp(file.name, name) == 0)
            return &file;
    return nullptr;
}

File *makeFile(char const *name)
{
    for (File &file : files) {
        if (file.name[0] || file.users)
            continue;
        if (!file.memory)
            file.memory = static_cast<unsigned char *>(Simulated::takeFromPool(FILE_SIZE));
        if (!file.memory)
            return nullptr;
        std::memset(file.memory, 0, FILE_SIZE);
        std::strncpy(file.name, name, sizeof file.name - 1);
        return &file;
    }
    return nullptr;
}

int open(File &file)
{
    for (unsigned i = 0; i < MAX_OPEN; ++i)
        if (!opened[i].file) {
            opened[i] = {&file, LOCK_UN};
            ++file.users;
            return FIRST + static_cast<int>(i);
        }
    return fail(EMFILE);
}

int describeFile(File const &file, Status &status)
{
    status = {};
    status.st_uid = userNumber();
    status.st_mode = file.isFolder ? S_IFDIR | 0700 : S_IFREG | 0600;
    return 0;
}

} // namespace

unsigned userNumber()
{
    return 1000;
}

int makeFolder(char const *, unsigned)
{
    enter("make folder");
    if (std::exchange(hasFolder, true))
        return fail(EEXIST);
    folder.isFolder = true;
    return 0;
}

int changeMode(char const *, unsigned)
{
    return 0;
}

int changeMode(int, char const *, unsigned)
{
    return 0;
}

int changeMode(int, unsigned)
{
    return 0;
}

int getStatus(char const *, Status &status)
{
    return hasFolder ? describeFile(folder, status) : fail(ENOENT);
}

int getStatus(int file, Status &status)
{
    return describeFile(*openOf(file).file, status);
}

int openFile(char const *, int flags)
{
    enter("open folder");
    // The other path is that of an open file of the process, which is asked for by a fork alone.
    return flags & O_DIRECTORY && hasFolder ? open(folder) : fail(ENOENT);
}

int openFile(int, char const *name, int flags, unsigned)
{
    enter("open file");
    File *file = findFile(name);
    if (!file && !(flags & O_CREAT))
        return fail(ENOENT);
    if (!file && Simulated::isRefused(Simulated::SEMAPHORES))
        return fail(ENOSPC);
    file = file ? file : makeFile(name);
    return file ? open(*file) : fail(ENOSPC);
}

void closeFile(int file)
{
    enter("close file");
    --openOf(file).file->users;
    openOf(file) = {};
}

void removeFile(int, char const *name)
{
    enter("remove file");
    if (File *file = findFile(name))
        file->name[0] = '\0';
}

int setSize(int file, std::size_t size)
{
    enter("set size");
    if (size == 0)
        std::memset(openOf(file).file->memory, 0, FILE_SIZE);
    return 0;
}

int lockFile(int file, int operation)
{
    enter("lock file");
    Open &mine = openOf(file);
    int const wanted = operation & ~LOCK_NB;
    for (Open const &other : opened)
        if (&other != &mine && other.file == mine.file && wanted != LOCK_UN &&
            (other.lock == LOCK_EX || (other.lock == LOCK_SH && wanted == LOCK_EX)))
            return fail(EWOULDBLOCK);
    mine.lock = wanted;
    return 0;
}

void *mapFile(int file, std::size_t)
{
    enter("map file");
    ++openOf(file).file->users;
    return openOf(file).file->memory;
}

void unmapFile(void *memory, std::size_t)
{
    enter("unmap file");
    for (File &file : files)
        if (file.memory == memory)
            --file.users;
}

char const *nameOfFile(unsigned index)
{
    return index < MAX_FILES ? files[index].name : nullptr;
}

} // namespace ZvPlatform::Linux::Kernel
