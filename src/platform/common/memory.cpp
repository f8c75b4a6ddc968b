#include "platform/common/memory.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

namespace ZvPlatform::Memory {

namespace {

struct Region
{
    Region *next;
    std::uintptr_t base;
    std::size_t size;
};

constinit Region *regions = nullptr;

std::uintptr_t pageSize()
{
    static constinit std::atomic<std::uintptr_t> size{0};
    std::uintptr_t value = size.load(std::memory_order_relaxed);
    if (!value) {
        value = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
        size.store(value, std::memory_order_relaxed);
    }
    return value;
}

/// The whole pages that contain a range of bytes.
struct Pages
{
    Pages(void *address, SIZE_T bytes)
    {
        std::uintptr_t const page = pageSize();
        auto const first = reinterpret_cast<std::uintptr_t>(address);
        base = first / page * page;
        good = bytes <= UINTPTR_MAX - first - page;
        size = good ? (first + bytes + page - 1) / page * page - base : 0;
    }

    void *start() const { return reinterpret_cast<void *>(base); }

    std::uintptr_t base;
    std::size_t size;
    bool good;
};

Region **linkOf(Pages const &pages)
{
    for (Region **link = &regions; *link; link = &(*link)->next)
        if (pages.base >= (*link)->base && pages.base < (*link)->base + (*link)->size)
            return link;
    return nullptr;
}

bool isInside(Pages const &pages, Region const &region)
{
    return pages.base + pages.size <= region.base + region.size;
}

/// Returns the system's form of a protection, or -1 if it is unknown.
int protectionOf(DWORD protection)
{
    switch (protection) {
    case PAGE_NOACCESS:
        return PROT_NONE;
    case PAGE_READONLY:
        return PROT_READ;
    case PAGE_READWRITE:
        return PROT_READ | PROT_WRITE;
    default:
        return -1;
    }
}

void *refuse(DWORD code)
{
    SetLastError(code);
    return nullptr;
}

BOOL fail(DWORD code)
{
    SetLastError(code);
    return FALSE;
}

void *reserve(void *address, Pages const &pages, int access)
{
    auto *region = static_cast<Region *>(::malloc(sizeof(Region)));
    if (!region)
        return refuse(ERROR_NOT_ENOUGH_MEMORY);
    int const flags =
        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | (address ? MAP_FIXED_NOREPLACE : 0);
    void *memory = ::mmap(address ? pages.start() : nullptr, pages.size, access, flags, -1, 0);
    if (memory == MAP_FAILED) {
        bool const taken = errno == EEXIST || errno == EPERM || errno == EINVAL;
        ::free(region);
        return refuse(address && taken ? ERROR_INVALID_ADDRESS : ERROR_NOT_ENOUGH_MEMORY);
    }
    // To a system that does not know MAP_FIXED_NOREPLACE, the address is only a hint.
    if (address && memory != pages.start()) {
        ::munmap(memory, pages.size);
        ::free(region);
        return refuse(ERROR_INVALID_ADDRESS);
    }
    *region = {regions, reinterpret_cast<std::uintptr_t>(memory), pages.size};
    regions = region;
    return memory;
}

} // namespace

void *allocate(void *address, SIZE_T size, DWORD type, DWORD protection)
{
    int const access = protectionOf(protection);
    if (size == 0 || access < 0 || type & ~DWORD{MEM_COMMIT | MEM_RESERVE} || type == 0)
        return refuse(ERROR_INVALID_PARAMETER);
    Pages const pages(address, size);
    if (!pages.good)
        return refuse(address ? ERROR_INVALID_PARAMETER : ERROR_NOT_ENOUGH_MEMORY);
    if (type & MEM_RESERVE || !address)
        return reserve(address, pages, type & MEM_COMMIT ? access : PROT_NONE);
    Region **link = linkOf(pages);
    if (!link || !isInside(pages, **link))
        return refuse(ERROR_INVALID_ADDRESS);
    if (::mprotect(pages.start(), pages.size, access) != 0)
        return refuse(ERROR_NOT_ENOUGH_MEMORY);
    return pages.start();
}

BOOL free(void *address, SIZE_T size, DWORD type)
{
    if (type != MEM_RELEASE && type != MEM_DECOMMIT)
        return fail(ERROR_INVALID_PARAMETER);
    if (type == MEM_RELEASE && size != 0)
        return fail(ERROR_INVALID_PARAMETER);
    Pages pages(address, size);
    if (!address || !pages.good)
        return fail(ERROR_INVALID_PARAMETER);
    Region **link = linkOf(pages);
    if (!link)
        return fail(ERROR_INVALID_ADDRESS);
    Region *region = *link;
    bool const isBase = reinterpret_cast<std::uintptr_t>(address) == region->base;
    if (size == 0 && !isBase)
        return fail(ERROR_INVALID_ADDRESS);
    if (type == MEM_RELEASE) {
        ::munmap(pages.start(), region->size);
        *link = region->next;
        ::free(region);
        return TRUE;
    }
    if (size == 0)
        pages.size = region->size;
    if (!isInside(pages, *region))
        return fail(ERROR_INVALID_PARAMETER);
    // Replaces the pages by new ones, so that they are zero when they are committed again.
    int const flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED;
    return ::mmap(pages.start(), pages.size, PROT_NONE, flags, -1, 0) != MAP_FAILED
               ? TRUE
               : fail(ERROR_NOT_ENOUGH_MEMORY);
}

void describe(SYSTEM_INFO &info)
{
#ifdef __aarch64__
    constexpr int UNUSED_BITS = 16;
#else
    constexpr int UNUSED_BITS = sizeof(void *) == 8 ? 17 : 0;
#endif
    std::uintptr_t const page = pageSize();
    info.dwPageSize = info.dwAllocationGranularity = static_cast<DWORD>(page);
    info.lpMinimumApplicationAddress = reinterpret_cast<void *>(std::uintptr_t{0x10000});
    info.lpMaximumApplicationAddress =
        reinterpret_cast<void *>((UINTPTR_MAX >> UNUSED_BITS) - page);
}

} // namespace ZvPlatform::Memory
