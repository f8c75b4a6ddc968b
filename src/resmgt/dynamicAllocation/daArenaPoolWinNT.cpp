#include "resmgt/dynamicAllocation/daArenaPool.h"
#include "resmgt/dynamicAllocation/daFirstFitArena.private.h"
#include "zvbase/failures.h"
#include "zvbase/objPtr.h"
#include "zvbase/scope.private.h"

#include <cstddef>
#include <utility>

namespace Zv {

namespace {

class DaArenaPoolWinNT : public DaArenaPool
{
public:
    DaArenaPoolWinNT(ObjPtr<DaArenaAllocator> allocator, std::uint64_t size)
        : DaArenaPool(std::move(allocator), size),
          _buffer(getAllocator()->allocate(size)),
          _arenaSize(size),
          _nbAllocated(0)
    {
        ZV_ASSERT(_buffer != NULL);
        try {
            _arena.reset(
                new DaFirstFitArena(reinterpret_cast<std::uintptr_t>(_buffer), _arenaSize));
        } catch (...) {
            getAllocator()->deallocate(_buffer, _arenaSize);
            throw;
        }
        ZV_ASSERT(_arena);
    }
    ~DaArenaPoolWinNT() noexcept(false) override
    {
        _arena.reset();
        throwUnlessUnwinding(Unwinding::ofAny(), __FILE__, __LINE__,
                             [this] { getAllocator()->deallocate(_buffer, _arenaSize); });
        ZV_ASSERT_IN_DESTRUCTOR(_nbAllocated == 0);
    }

    using DaArenaPool::allocate;
    void *allocate(std::uint64_t size, std::uint64_t alignment) override
    {
        auto const address = static_cast<std::uintptr_t>(_arena->allocate(size, alignment));
        if (address != 0)
            ++_nbAllocated;
        return reinterpret_cast<void *>(address);
    }
    void deallocate(void *memory) override
    {
        _arena->deallocate(reinterpret_cast<std::uintptr_t>(memory));
        --_nbAllocated;
    }

private:
    ObjPtr<DaFirstFitArena> _arena;
    void *_buffer;
    std::uint64_t _arenaSize;
    std::uint64_t _nbAllocated;
};

} // namespace

DaArenaPool::DaArenaPool(ObjPtr<DaArenaAllocator> allocator, std::uint64_t size)
    : _allocator(std::move(allocator)), _size(size)
{}

DaArenaPool::~DaArenaPool() noexcept(false) = default;

void *DaArenaPool::allocate(std::uint64_t size)
{
    return allocate(size, 0);
}

DaArenaPool *DaArenaPool::create(DaArenaAllocator *allocator, std::uint64_t size)
{
    if (!allocator)
        RCExUtil::throwExNullPtr();
    ObjPtr<DaArenaAllocator> owner(allocator);
    return new DaArenaPoolWinNT(std::move(owner), size);
}

} // namespace Zv
