#include "zvbase/hmHeapMgr.h"

#include "zvbase/platform/shared.h"

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
    static constinit ZvPlatform::Shared<HmHeapMgr *> instance{nullptr};
    HmHeapMgr *known = instance.load(ZvPlatform::Order::ACQUIRE);
    if (!known) {
        HmHeapMgr * const made = new TheHeapMgr;
        if (instance.compare_exchange_strong(known, made, ZvPlatform::Order::RELEASE,
                                             ZvPlatform::Order::ACQUIRE))
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
    _nbWarmUps.fetch_add(1, ZvPlatform::Order::RELAXED);
}

unsigned HmHeapMgr::getNbWarmUps() const
{
    return _nbWarmUps.load(ZvPlatform::Order::RELAXED);
}

} // namespace Zv
