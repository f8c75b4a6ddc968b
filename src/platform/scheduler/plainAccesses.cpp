// Functions that the compiler calls for each access to memory, as the thread sanitizer defines
// them, and those that the linker puts before the functions of the C library that give memory.
#ifdef ZV_RACES

#include "platform/scheduler/plainData.h"
#include "platform/scheduler/scheduler.h"
#include "platform/scheduler/sharedWords.h"

#include <cstring>
#include <malloc.h>
#include <sys/types.h>

using namespace ZvPlatform::Simulated;

#define CALLER __builtin_return_address(0)

// ---- Reads and writes.

#define READ_AND_WRITE(KIND, SIZE)                                                                 \
    void __tsan_##KIND##read##SIZE(void *address)                                                  \
    {                                                                                              \
        plainData.check(address, SIZE, READ, CALLER);                                              \
    }                                                                                              \
    void __tsan_##KIND##write##SIZE(void *address)                                                 \
    {                                                                                              \
        plainData.check(address, SIZE, WRITE, CALLER);                                             \
    }

#define ACCESSES(SIZE)                                                                             \
    READ_AND_WRITE(, SIZE)                                                                         \
    READ_AND_WRITE(unaligned_, SIZE)                                                               \
    READ_AND_WRITE(volatile_, SIZE)

extern "C" {

void __tsan_init() {}
void __tsan_func_entry(void *) {}
void __tsan_func_exit() {}

ACCESSES(1)
ACCESSES(2)
ACCESSES(4)
ACCESSES(8)
ACCESSES(16)

void __tsan_read_range(void *address, unsigned long size)
{
    plainData.check(address, size, READ, CALLER);
}

void __tsan_write_range(void *address, unsigned long size)
{
    plainData.check(address, size, WRITE, CALLER);
}

void __tsan_vptr_read(void **address)
{
    plainData.check(address, sizeof *address, READ, CALLER);
}

void __tsan_vptr_update(void **address, void *value)
{
    // A constructor or destructor that changes nothing does not disturb virtual calls.
    if (*address != value)
        plainData.check(address, sizeof *address, WRITE, CALLER);
}

// The compiler calls these for memcpy and the like, see checkedCopies.h.

void *zvCheckedMemcpy(void *to, void const *from, std::size_t size)
{
    plainData.check(from, size, READ, CALLER);
    plainData.check(to, size, WRITE, CALLER);
    return std::memcpy(to, from, size);
}

void *zvCheckedMemmove(void *to, void const *from, std::size_t size)
{
    plainData.check(from, size, READ, CALLER);
    plainData.check(to, size, WRITE, CALLER);
    return std::memmove(to, from, size);
}

void *zvCheckedMemset(void *to, int value, std::size_t size)
{
    plainData.check(to, size, WRITE, CALLER);
    return std::memset(to, value, size);
}

int zvCheckedMemcmp(void const *one, void const *other, std::size_t size)
{
    plainData.check(one, size, READ, CALLER);
    plainData.check(other, size, READ, CALLER);
    return std::memcmp(one, other, size);
}

} // extern "C"

// ---- Atomic operations.

namespace {

/// Checks an atomic operation. One that is not of a `Shared` word is no point of the schedule. It
/// orders what it must order, and the newest value is read.
void reachAtomic(void const volatile *address, std::size_t size, unsigned access, int order,
                 void const *caller)
{
    void const *word = const_cast<void const *>(address);
    if (plainData.checkAtomic(word, size, access, caller))
        return;
    if (access & WRITE && order != __ATOMIC_RELAXED && order != __ATOMIC_ACQUIRE)
        synchroniseRelease(word);
    if (order != __ATOMIC_RELAXED && order != __ATOMIC_RELEASE)
        synchroniseAcquire(word);
}

} // namespace

#define CHANGE(BITS, TYPE, NAME)                                                                   \
    TYPE __tsan_atomic##BITS##_##NAME(TYPE volatile *word, TYPE value, int order)                  \
    {                                                                                              \
        reachAtomic(word, sizeof(TYPE), WRITE, order, CALLER);                                     \
        return __atomic_##NAME(word, value, __ATOMIC_SEQ_CST);                                     \
    }

#define COMPARE_EXCHANGE(BITS, TYPE, NAME)                                                         \
    int __tsan_atomic##BITS##_##NAME(TYPE volatile *word, TYPE *expected, TYPE value, int order,   \
                                     int)                                                          \
    {                                                                                              \
        reachAtomic(word, sizeof(TYPE), WRITE, order, CALLER);                                     \
        return __atomic_compare_exchange_n(word, expected, value, false, __ATOMIC_SEQ_CST,         \
                                           __ATOMIC_SEQ_CST);                                      \
    }

#define ATOMICS(BITS, TYPE)                                                                        \
    TYPE __tsan_atomic##BITS##_load(TYPE const volatile *word, int order)                          \
    {                                                                                              \
        reachAtomic(word, sizeof(TYPE), READ, order, CALLER);                                      \
        return __atomic_load_n(word, __ATOMIC_SEQ_CST);                                            \
    }                                                                                              \
    void __tsan_atomic##BITS##_store(TYPE volatile *word, TYPE value, int order)                   \
    {                                                                                              \
        reachAtomic(word, sizeof(TYPE), WRITE, order, CALLER);                                     \
        __atomic_store_n(word, value, __ATOMIC_SEQ_CST);                                           \
    }                                                                                              \
    TYPE __tsan_atomic##BITS##_exchange(TYPE volatile *word, TYPE value, int order)                \
    {                                                                                              \
        reachAtomic(word, sizeof(TYPE), WRITE, order, CALLER);                                     \
        return __atomic_exchange_n(word, value, __ATOMIC_SEQ_CST);                                 \
    }                                                                                              \
    CHANGE(BITS, TYPE, fetch_add)                                                                  \
    CHANGE(BITS, TYPE, fetch_sub)                                                                  \
    CHANGE(BITS, TYPE, fetch_and)                                                                  \
    CHANGE(BITS, TYPE, fetch_or)                                                                   \
    CHANGE(BITS, TYPE, fetch_xor)                                                                  \
    CHANGE(BITS, TYPE, fetch_nand)                                                                 \
    COMPARE_EXCHANGE(BITS, TYPE, compare_exchange_strong)                                          \
    COMPARE_EXCHANGE(BITS, TYPE, compare_exchange_weak)

extern "C" {

ATOMICS(8, std::uint8_t)
ATOMICS(16, std::uint16_t)
ATOMICS(32, std::uint32_t)
ATOMICS(64, std::uint64_t)

void __tsan_atomic_thread_fence(int)
{
    __atomic_thread_fence(__ATOMIC_SEQ_CST);
}

void __tsan_atomic_signal_fence(int) {}

// ---- Memory. To give memory back counts as a write of all of its bytes. What the allocator then
// gives to another thread is new memory.

void *__real_malloc(std::size_t);
void *__real_calloc(std::size_t, std::size_t);
void *__real_realloc(void *, std::size_t);
void *__real_aligned_alloc(std::size_t, std::size_t);
int __real_posix_memalign(void **, std::size_t, std::size_t);
void __real_free(void *);
void *__real_mmap(void *, std::size_t, int, int, int, off_t);
void __real___cxa_guard_release(void *);

static void *becomesNew(void *memory)
{
    if (memory && scheduler.isRunning())
        plainData.forget(memory, ::malloc_usable_size(memory));
    return memory;
}

static void isGivenBack(void *memory, void const *caller)
{
    if (memory)
        plainData.check(memory, ::malloc_usable_size(memory), WRITE | FREE, caller);
}

void *__wrap_malloc(std::size_t size)
{
    return becomesNew(__real_malloc(size));
}

void *__wrap_calloc(std::size_t count, std::size_t size)
{
    return becomesNew(__real_calloc(count, size));
}

void *__wrap_realloc(void *memory, std::size_t size)
{
    isGivenBack(memory, CALLER);
    return becomesNew(__real_realloc(memory, size));
}

void *__wrap_aligned_alloc(std::size_t alignment, std::size_t size)
{
    return becomesNew(__real_aligned_alloc(alignment, size));
}

int __wrap_posix_memalign(void **memory, std::size_t alignment, std::size_t size)
{
    int const error = __real_posix_memalign(memory, alignment, size);
    if (error == 0)
        becomesNew(*memory);
    return error;
}

void __wrap_free(void *memory)
{
    isGivenBack(memory, CALLER);
    __real_free(memory);
}

void *__wrap_mmap(void *wanted, std::size_t size, int access, int flags, int file, off_t offset)
{
    void *memory = __real_mmap(wanted, size, access, flags, file, offset);
    if (scheduler.isRunning() && memory != reinterpret_cast<void *>(-1))
        plainData.forget(memory, size);
    return memory;
}

/// The construction of a static happens before all that uses it.
void __wrap___cxa_guard_release(void *guard)
{
    synchroniseRelease(guard);
    __real___cxa_guard_release(guard);
}

} // extern "C"

#endif
