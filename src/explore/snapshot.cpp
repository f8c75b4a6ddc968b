#include "explore/snapshot.private.h"

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>
#if __has_include(<sys/rseq.h>)
#include <sys/rseq.h>
#endif

namespace Zv::Simulated {

namespace {

constexpr std::size_t PAGE = 4096;

struct Region
{
    char *begin;
    char *end;
};

/// What the system says of the memory of the process, in pages.
struct Mapped
{
    long all = 0;
    long writable = 0;
};

[[noreturn]] void fail(char const *what)
{
    std::perror(what);
    std::abort();
}

/// Allows an access to pages. No function of the C library is called that would write to memory.
void allow(char *begin, char *end, int access)
{
    if (begin != end && ::mprotect(begin, static_cast<std::size_t>(end - begin), access) != 0)
        ::_exit(1);
}

/// Opens a file with a high number, so that the files of a program get their usual numbers.
int openApart(char const *path)
{
    constexpr int FIRST = 500;
    int const file = ::open(path, O_RDONLY | O_CLOEXEC);
    int const apart = ::fcntl(file, F_DUPFD_CLOEXEC, FIRST);
    ::close(file);
    return apart;
}

/// Returns the lowest number that a new file would get.
int lowestFreeFile()
{
    int const file = ::fcntl(STDIN_FILENO, F_DUPFD, 0);
    ::close(file);
    return file;
}

} // namespace

/// In memory that is shared, so that it is no part of the snapshot.
struct Snapshot::Pages
{
    static constexpr unsigned MAX_REGIONS = 256;
    static constexpr unsigned MAX_PAGES = 8192;

    struct Page
    {
        char *place;
        bool isZero;
    };

    void findRegions();
    void addRegion(std::string_view line);
    void keepWhatTheSystemWrites();
    void protect();
    bool holds(char const *address) const;
    bool keep(char *address);
    Mapped readMapped() const;

    static void onFault(int, siginfo_t *info, void *);

    Region regions[MAX_REGIONS];
    unsigned nbRegions;
    Page pages[MAX_PAGES];
    unsigned nbPages;
    bool isFull; ///< a page has not been copied
    int statm;
    int freeFile;
    Mapped mapped;
    struct sigaction former;
    char maps[64 * 1024]; ///< text of the system
    char handlerStack[64 * 1024];
    alignas(PAGE) char copies[MAX_PAGES][PAGE];
};

namespace {

/// The pages of the snapshot that exists, for the handler.
constinit void *present = nullptr;

} // namespace

/// Allocates no memory, so that a program gets the same addresses with and without a snapshot.
void Snapshot::Pages::findRegions()
{
    int const file = ::open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    std::size_t length = 0;
    for (ssize_t count = 1; file >= 0 && count > 0; length += static_cast<std::size_t>(count)) {
        count = ::read(file, maps + length, sizeof maps - length);
        if (count < 0)
            fail("/proc/self/maps");
    }
    ::close(file);
    if (length == 0 || length == sizeof maps)
        fail("/proc/self/maps");
    std::string_view text(maps, length);
    for (; !text.empty(); text.remove_prefix(text.find('\n') + 1))
        addRegion(text.substr(0, text.find('\n')));
}

/// Adds the region of a line such as `7ffff7d8e000-7ffff7d90000 rw-p 00000000 00:00 0`.
void Snapshot::Pages::addRegion(std::string_view line)
{
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    char const * const last = line.data() + line.size();
    char const * const dash = std::from_chars(line.data(), last, begin, 16).ptr;
    char const * const space = std::from_chars(dash + 1, last, end, 16).ptr;
    bool const isPrivate = std::string_view(space, 5) == " rw-p";
    if (!isPrivate || line.ends_with("[stack]"))
        return;
    if (nbRegions == MAX_REGIONS)
        fail("too many regions");
    regions[nbRegions++] = {reinterpret_cast<char *>(begin), reinterpret_cast<char *>(end)};
}

/// The system writes to the restartable sequence of the thread when it takes the processor from it.
void Snapshot::Pages::keepWhatTheSystemWrites()
{
#if __has_include(<sys/rseq.h>)
    keep(static_cast<char *>(__builtin_thread_pointer()) + __rseq_offset);
#endif
}

/// Makes all pages read-only that have not been copied.
void Snapshot::Pages::protect()
{
    for (unsigned i = 0; i < nbRegions; ++i) {
        char *begin = regions[i].begin;
        for (unsigned j = 0; j < nbPages; ++j)
            if (pages[j].place >= begin && pages[j].place < regions[i].end) {
                allow(begin, pages[j].place, PROT_READ);
                begin = pages[j].place + PAGE;
            }
        allow(begin, regions[i].end, PROT_READ);
    }
}

bool Snapshot::Pages::holds(char const *address) const
{
    return std::any_of(regions, regions + nbRegions, [&](Region const &region) {
        return address >= region.begin && address < region.end;
    });
}

/// Copies the page of an address, and makes it writable. Returns false if it is not read-only
/// because of the snapshot.
bool Snapshot::Pages::keep(char *address)
{
    char * const place = address - reinterpret_cast<std::uintptr_t>(address) % PAGE;
    for (unsigned i = nbPages; i-- > 0;)
        if (pages[i].place == place)
            return false;
    if (!holds(place) || isFull)
        return false;
    if (nbPages == MAX_PAGES) {
        // The schedule goes on, and is the last one of the process.
        isFull = true;
        for (unsigned i = 0; i < nbRegions; ++i)
            allow(regions[i].begin, regions[i].end, PROT_READ | PROT_WRITE);
        return true;
    }
    char * const copy = copies[nbPages];
    std::memcpy(copy, place, PAGE);
    bool const isZero = copy[0] == 0 && std::memcmp(copy, copy + 1, PAGE - 1) == 0;
    pages[nbPages++] = {place, isZero};
    allow(place, place + PAGE, PROT_READ | PROT_WRITE);
    return true;
}

Mapped Snapshot::Pages::readMapped() const
{
    // The numbers are size, resident, shared, text, lib, data.
    constexpr unsigned SIZE = 0;
    constexpr unsigned DATA = 5;
    char text[256];
    ssize_t const length = ::pread(statm, text, sizeof text, 0);
    Mapped result;
    char const *next = text;
    for (unsigned i = 0; i <= DATA && length > 0; ++i) {
        long number = 0;
        next = std::from_chars(next, text + length, number).ptr + 1;
        if (i == SIZE)
            result.all = number;
        else if (i == DATA)
            result.writable = number;
    }
    return result;
}

void Snapshot::Pages::onFault(int, siginfo_t *info, void *)
{
    auto &pages = *static_cast<Pages *>(present);
    if (info->si_code != SEGV_ACCERR || !pages.keep(static_cast<char *>(info->si_addr)))
        ::sigaction(SIGSEGV, &pages.former, nullptr);
}

Snapshot::Snapshot()
{
    // Apart, so that what a program maps gets its usual address.
    void * const place = reinterpret_cast<void *>(std::uintptr_t{1} << (sizeof(void *) * 11 / 2));
    void * const memory = ::mmap(place, sizeof(Pages), PROT_READ | PROT_WRITE,
                                 MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED)
        fail("mmap");
    present = _pages = new (memory) Pages;
    _pages->statm = openApart("/proc/self/statm");
    _pages->findRegions();
    _pages->freeFile = lowestFreeFile();
    stack_t stack = {};
    stack.ss_sp = _pages->handlerStack;
    stack.ss_size = sizeof _pages->handlerStack;
    struct sigaction action = {};
    action.sa_sigaction = Pages::onFault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    if (_pages->statm < 0 || ::sigaltstack(&stack, nullptr) != 0 ||
        ::sigaction(SIGSEGV, &action, &_pages->former) != 0)
        fail("snapshot");
    _pages->keepWhatTheSystemWrites();
    _pages->protect();
    _pages->mapped = _pages->readMapped();
    _pages->mapped.writable -= _pages->nbPages;
}

bool Snapshot::restore()
{
    Pages &pages = *_pages;
    Mapped const mapped = pages.readMapped();
    if (pages.isFull || mapped.all != pages.mapped.all ||
        mapped.writable - pages.nbPages != pages.mapped.writable ||
        lowestFreeFile() != pages.freeFile)
        return false;
    for (unsigned i = 0; i < pages.nbPages; ++i) {
        Pages::Page const &page = pages.pages[i];
        if (page.isZero)
            std::memset(page.place, 0, PAGE);
        else
            std::memcpy(page.place, pages.copies[i], PAGE);
    }
    return true;
}

} // namespace Zv::Simulated
