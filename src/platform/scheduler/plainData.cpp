#include "platform/scheduler/plainData.h"

#ifdef ZV_RACES

#include "platform/scheduler/scheduler.h"
#include "platform/scheduler/sharedWords.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sys/mman.h>
#include <utility>

/// The beginning of the program in memory. The linker defines it.
extern "C" char const __executable_start[];

namespace ZvPlatform::Simulated {

constinit PlainData plainData;

namespace {

constexpr std::size_t PAGE = 4096;

// ---- The places of accesses: call stacks if the steps are traced, otherwise return addresses.

constexpr std::uint32_t MAX_PLACES = 1 << 18;

// The place 0 is unknown.
constinit Place places[MAX_PLACES] = {};
constinit std::uint32_t placeOf[2 * MAX_PLACES] = {};
constinit std::uint32_t nbPlaces = 1;

/// Returns the number of the present call stack. Equal ones have one number.
std::uint32_t presentStack()
{
    Place place;
    scheduler.mark(place);
    std::uintptr_t hash = 0;
    for (unsigned i = 0; i < place.count; ++i)
        hash = (hash ^ reinterpret_cast<std::uintptr_t>(place.frames[i])) * 0x9E3779B97F4A7C15;
    for (std::size_t i = hash >> 32;; ++i) {
        std::uint32_t &number = placeOf[i % (2 * MAX_PLACES)];
        if (number == 0) {
            if (nbPlaces == MAX_PLACES)
                return 0;
            number = nbPlaces++;
            places[number] = place;
            return number;
        }
        Place const &known = places[number];
        if (known.count == place.count &&
            std::equal(known.frames, known.frames + known.count, place.frames))
            return number;
    }
}

std::uint32_t placeFor(void const *caller)
{
    return scheduler.isTracing()
               ? presentStack()
               : static_cast<std::uint32_t>(static_cast<char const *>(caller) - __executable_start);
}

Place const *findPlace(std::uint32_t place)
{
    static constinit Place result = {};
    if (scheduler.isTracing())
        return &places[place];
    result.frames[0] = const_cast<char *>(__executable_start + place);
    result.count = 1;
    return &result;
}

// ---- The order of accesses.

/// Whether two accesses to one byte by two threads can be a race.
bool canRace(unsigned one, unsigned other)
{
    return (one | other) & WRITE && !(one & other & ATOMIC);
}

/// Whether each access that can race with `former` can race with `later`, too.
bool includes(unsigned later, unsigned former)
{
    return (later & WRITE || !(former & WRITE)) && (!(later & ATOMIC) || former & ATOMIC);
}

char const *describe(unsigned access)
{
    if (access & FREE)
        return "release of the memory";
    if (access & ATOMIC)
        return access & WRITE ? "atomic write" : "atomic read";
    return access & WRITE ? "write" : "read";
}

} // namespace

// ---- Memory.

void PlainData::reset()
{
    for (Granule *&block : _blocks)
        if (block)
            ::munmap(std::exchange(block, nullptr), BLOCK / GRANULE * sizeof(Granule));
    _ignoring = 0;
    _shared = nullptr;
}

/// Returns the granule that contains an address, or null if there is none and none is to be made.
PlainData::Granule *PlainData::find(std::uintptr_t address, bool makes)
{
    std::size_t const index = address / BLOCK;
    if (index >= BLOCKS)
        return nullptr;
    Granule *&block = _blocks[index];
    if (!block) {
        if (!makes)
            return nullptr;
        // Pages that are not touched cost nothing.
        void *memory = ::mmap(nullptr, BLOCK / GRANULE * sizeof(Granule), PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED)
            std::abort();
        block = static_cast<Granule *>(memory);
    }
    return &block[address % BLOCK / GRANULE];
}

void PlainData::forget(void const *address, std::size_t size)
{
    auto next = reinterpret_cast<std::uintptr_t>(address) / GRANULE * GRANULE;
    auto const end =
        (reinterpret_cast<std::uintptr_t>(address) + size + GRANULE - 1) / GRANULE * GRANULE;
    while (next < end) {
        std::uintptr_t const behind = std::min(end, next / BLOCK * BLOCK + BLOCK);
        if (Granule *first = find(next, false)) {
            char *memory = reinterpret_cast<char *>(first);
            std::size_t const bytes = (behind - next) / GRANULE * sizeof(Granule);
            std::size_t const before =
                std::min(bytes, (PAGE - reinterpret_cast<std::uintptr_t>(memory) % PAGE) % PAGE);
            std::size_t const whole = (bytes - before) / PAGE * PAGE;
            std::memset(memory, 0, before);
            if (whole)
                ::madvise(memory + before, whole, MADV_DONTNEED);
            std::memset(memory + before + whole, 0, bytes - before - whole);
        }
        next = behind;
    }
}

void PlainData::forgetStack(std::size_t size)
{
    // The C library has its own data of the thread at this address, above the other two.
    auto const top = static_cast<std::uintptr_t>(::pthread_self());
    forget(reinterpret_cast<void *>(top - size), size);
}

// ---- Accesses.

PlainData::Cell PlainData::newCell(unsigned access, void const *caller) const
{
    Task const &task = *self;
    unsigned const thread = indexOf(task);
    Cell cell;
    cell.event = weakMemory.nextEvent(thread);
    cell.step = scheduler.getStep();
    cell.place = placeFor(caller);
    cell.serial = static_cast<std::uint16_t>(task.serial);
    cell.mask = 0;
    cell.thread = static_cast<std::uint8_t>(thread % WeakMemory::THREADS) & 15;
    cell.access = static_cast<std::uint8_t>(access) & 15;
    return cell;
}

void PlainData::check(Granule &granule, std::uintptr_t base, Cell const &access)
{
    Cell *place = nullptr;
    for (Cell &cell : granule.cells) {
        if (!(cell.mask & access.mask)) {
            if (!cell.mask && !place)
                place = &cell;
            continue;
        }
        bool const isOrdered = cell.thread == access.thread ||
                               weakMemory.happensBefore(cell.thread, cell.event, access.thread);
        if (!isOrdered) {
            if (canRace(cell.access, access.access))
                report(base, cell, access);
            continue;
        }
        // What races with the former access, and is still to come, races with this one, too.
        if (!(cell.mask & ~access.mask) && includes(access.access, cell.access)) {
            if (place)
                cell.mask = 0;
            else
                place = &cell;
        } else if (cell.thread == access.thread && cell.event == access.event &&
                   !(access.mask & ~cell.mask) && includes(cell.access, access.access)) {
            return;
        }
    }
    if (!place)
        place = &granule.cells[(access.event + base / GRANULE) % CELLS];
    *place = access;
}

void PlainData::checkRange(std::uintptr_t address, std::size_t size, Cell const &access)
{
    Cell cell = access;
    std::uintptr_t const end = address + size;
    while (address < end) {
        std::uintptr_t const base = address / GRANULE * GRANULE;
        std::uintptr_t const behind = std::min(end, base + GRANULE);
        cell.mask = static_cast<std::uint8_t>(((1u << (behind - address)) - 1) << (address - base));
        if (Granule *granule = find(base, true))
            check(*granule, base, cell);
        address = behind;
    }
}

void PlainData::check(void const *address, std::size_t size, unsigned access, void const *caller)
{
    if (!scheduler.isRunning() || _ignoring)
        return;
    checkRange(reinterpret_cast<std::uintptr_t>(address), size, newCell(access, caller));
}

void PlainData::expectShared(void const *word)
{
    _shared = word;
    _sharedEvent = weakMemory.nextEvent(indexOf(*self));
}

bool PlainData::checkAtomic(void const *word, std::size_t size, unsigned access, void const *caller)
{
    bool const isShared = word == _shared;
    if (!scheduler.isRunning() || _ignoring)
        return isShared;
    Cell cell = newCell(access | ATOMIC, caller);
    // The memory model may already have been told of the operation.
    if (isShared)
        cell.event = _sharedEvent;
    checkRange(reinterpret_cast<std::uintptr_t>(word), size, cell);
    return isShared;
}

// ---- Reports.

void PlainData::report(std::uintptr_t base, Cell const &earlier, Cell const &later)
{
    Unseen const unseen;
    static char text[8192];
    char *next = text;
    char * const end = text + sizeof text;
    auto const address = reinterpret_cast<void const *>(
        base + static_cast<unsigned>(std::countr_zero<unsigned>(earlier.mask & later.mask)));
    append(next, end, "neither of two accesses to %p %s happens before the other", address,
           nameOf(address));
    for (Cell const *cell : {&later, &earlier}) {
        append(next, end, "\n  %s of %d bytes, in ", describe(cell->access),
               std::popcount(cell->mask));
        append(next, end,
               WeakMemory::Origin{cell->step, cell->serial,
                                  const_cast<Place *>(findPlace(cell->place))});
        --next; // the end of the line
    }
    *next = '\0';
    if (weakMemory.followsAll())
        scheduler.report("data race", text);
    append(next, end,
           "\n  This may be no race. The memory model follows %u words and %u objects, and the "
           "program has more.",
           WeakMemory::WORDS, WeakMemory::OBJECTS);
    scheduler.report("too many words", text);
}

} // namespace ZvPlatform::Simulated

#else

namespace ZvPlatform::Simulated {

constinit PlainData plainData;

} // namespace ZvPlatform::Simulated

#endif
