#include "platform/scheduler/pool.h"

#include <sys/mman.h>
#include <unistd.h>

namespace ZvPlatform::Simulated {

namespace {

constexpr std::size_t POOL = std::size_t{1} << (sizeof(void *) == 8 ? 30 : 27);

constinit char *pool = nullptr;
constinit std::size_t used = 0;

void *map(std::size_t size)
{
    void *memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return memory == MAP_FAILED ? nullptr : memory;
}

} // namespace

void *takeFromPool(std::size_t size)
{
    if (!pool)
        pool = static_cast<char *>(map(POOL));
    std::size_t const page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    if (!pool || size > POOL - used - page)
        return map(size);
    void *memory = pool + used;
    used += (size + page - 1) / page * page;
    return memory;
}

} // namespace ZvPlatform::Simulated
