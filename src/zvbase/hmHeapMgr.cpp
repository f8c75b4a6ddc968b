#include "zvbase/hmHeapMgr.h"

#include "zvbase/platform/interlocked.h"

#include <cstdlib>

namespace Zv {

namespace {

// The memory that the library's own objects need in a process of a few dozen threads.
constexpr std::size_t FIRST_STRETCH = 64 * 1024;
constexpr std::size_t PAGE = 4096;

struct TheHeapMgr : HmHeapMgr
{
    TheHeapMgr() = default;
};

} // namespace

HmHeapMgr::HmHeapMgr() = default;
HmHeapMgr::~HmHeapMgr() = default;

HmHeapMgr &HmHeapMgr::getInstance()
{
    static constinit HmHeapMgr *instance = nullptr;
    HmHeapMgr *known = ZvPlatform::Interlocked::loadAcquire(instance);
    if (!known) {
        HmHeapMgr * const made = new TheHeapMgr;
        if (ZvPlatform::Interlocked::compareExchange(instance, known, made))
            return *made;
        delete made;
    }
    return *known;
}

void HmHeapMgr::warmUp()
{
    // The allocator keeps a freed block of this size. Only larger blocks go back to the system.
    if (void * const stretch = std::malloc(FIRST_STRETCH)) {
        for (std::size_t offset = 0; offset < FIRST_STRETCH; offset += PAGE)
            static_cast<char volatile *>(stretch)[offset] = 0;
        std::free(stretch);
    }
    ZvPlatform::Interlocked::increment(_nbWarmUps);
}

unsigned HmHeapMgr::getNbWarmUps() const
{
    return ZvPlatform::Interlocked::loadAcquire(_nbWarmUps);
}

} // namespace Zv
