#include "platform/scheduler/weakMemory.h"

#include "platform/scheduler/pool.h"

#include <algorithm>
#include <cstdlib>

namespace ZvPlatform::Simulated {

namespace {

bool acquires(Order order)
{
    return order != Order::RELAXED && order != Order::RELEASE;
}

bool releases(Order order)
{
    return order == Order::RELEASE || order == Order::ACQ_REL || order == Order::SEQ_CST;
}

/// Whether the thread of the clock knows that the value was stored, or has been read.
bool isIn(WeakMemory::Store const &store, WeakMemory::Clock const &clock)
{
    if (store.event <= clock.events[store.thread])
        return true;
    bool isRead = false; // without a branch, so that the comparisons are made together
    for (unsigned i = 0; i < WeakMemory::THREADS; ++i)
        isRead |= store.readers[i] <= clock.events[i];
    return isRead;
}

/// The numbers of words that are beside each other are beside each other, too.
std::size_t hashOf(void const *address)
{
    auto const bits = reinterpret_cast<std::uintptr_t>(address);
    return (bits >> 2) + (bits >> 16);
}

} // namespace

template <class Entry, unsigned SIZE>
std::uint16_t &WeakMemory::Table<Entry, SIZE>::numberOf(void const *address)
{
    std::size_t i = hashOf(address) % (2 * SIZE);
    while (_numbers[i] && entries[_numbers[i] - 1].address != address)
        i = (i + 1) % (2 * SIZE);
    return _numbers[i];
}

template <class Entry, unsigned SIZE>
Entry *WeakMemory::Table<Entry, SIZE>::find(void const *address)
{
    if (_latest && _latest->address == address)
        return _latest;
    std::uint16_t &number = numberOf(address);
    if (number)
        return _latest = &entries[number - 1];
    if (count == SIZE) {
        isTooSmall = true;
        return nullptr;
    }
    Entry &entry = entries[count++];
    number = static_cast<std::uint16_t>(count);
    entry.address = address;
    return _latest = &entry;
}

template <class Entry, unsigned SIZE>
void WeakMemory::Table<Entry, SIZE>::clear()
{
    // The latest entry goes first, so that the others are still found.
    for (; count; --count) {
        numberOf(entries[count - 1].address) = 0;
        entries[count - 1] = {};
    }
    isTooSmall = false;
    _latest = nullptr;
}

void WeakMemory::Clock::join(Clock const &other)
{
    for (unsigned i = 0; i < THREADS; ++i)
        events[i] = std::max(events[i], other.events[i]);
}

void WeakMemory::View::join(View const &other)
{
    happened.join(other.happened);
    fenced.join(other.fenced);
    fence = std::max(fence, other.fence);
}

void WeakMemory::reset()
{
    Tables *tables = _tables;
    if (tables) {
        tables->words.clear();
        tables->objects.clear();
    } else {
        tables = static_cast<Tables *>(takeFromPool(sizeof(Tables)));
        if (!tables)
            std::abort();
    }
    *this = {};
    _tables = tables;
}

// ---- The history of a word.

WeakMemory::Store *WeakMemory::newStore(Word &word, std::uint64_t value)
{
    Store *store = _free;
    if (store)
        _free = store->older;
    else
        store = &_tables->stores[_nbStores++];
    store->value = value;
    store->older = word.newest;
    store->event = 0;
    store->thread = 0;
    store->isReleased = false;
    store->releasing = 0;
    store->place = 0;
    std::fill_n(store->readers, THREADS, Store::NEVER);
    store->origin = {};
    word.newest = store;
    if (++word.count > HISTORY) {
        Store *second = store;
        for (unsigned i = 2; i < HISTORY; ++i)
            second = second->older;
        drop(second->older->older);
        second->older->older = nullptr;
        --word.count;
    }
    return store;
}

void WeakMemory::drop(Store *store)
{
    while (store) {
        Store * const older = store->older;
        store->older = _free;
        _free = store;
        store = older;
    }
}

/// Begins the history of a word with a store that every thread knows.
void WeakMemory::begin(Word &word, std::uint64_t value)
{
    drop(word.newest);
    word.newest = nullptr;
    word.count = 0;
    word.built = 0;
    newStore(word, value);
}

WeakMemory::Word *WeakMemory::find(void const *address, std::uint64_t newest)
{
    Word *word = _tables->words.find(address);
    if (word && (!word->newest || word->newest->value != newest))
        begin(*word, newest);
    return word;
}

// ---- What may be read.

/// Whether the thread may not read anything older than this store.
bool WeakMemory::isKnown(Store const &store, Thread const &thread, bool isSequential) const
{
    if (isIn(store, thread.view.happened) || isIn(store, thread.view.fenced))
        return true;
    if (store.place && (isSequential || store.place <= thread.view.fence))
        return true;
    return isSequential && isIn(store, _sequential.happened);
}

/// Finds the stores that may be read, the newest first, and returns their number.
unsigned WeakMemory::collect(Word const &word, Thread const &thread, bool isSequential,
                             Store *(&stores)[HISTORY]) const
{
    unsigned count = 0;
    for (Store *store = word.newest; store; store = store->older) {
        stores[count++] = store;
        if (isKnown(*store, thread, isSequential))
            break;
    }
    return count;
}

// ---- Operations.

void WeakMemory::read(unsigned thread, Store &store, Order order)
{
    Thread &me = at(thread);
    std::uint32_t const event = ++me.events;
    std::uint32_t &first = store.readers[thread % THREADS];
    first = std::min(first, event);
    if (store.isReleased)
        (acquires(order) ? me.view : me.toAcquire).join(store.released);
    me.view.happened.events[thread % THREADS] = event;
    if (order == Order::SEQ_CST) {
        ++_places;
        store.place = store.place ? store.place : _places;
    }
}

void WeakMemory::write(unsigned thread, Store &store, Order order, Origin origin)
{
    Thread &me = at(thread);
    store.event = ++me.events;
    store.thread = static_cast<std::uint8_t>(thread % THREADS);
    store.origin = origin;
    me.view.happened.events[thread % THREADS] = store.event;
    if (order == Order::SEQ_CST)
        store.place = ++_places;
    if (!releases(order) && !me.isReleased)
        return;
    store.releasing = origin.order;
    View const &view = releases(order) ? me.view : me.released;
    if (store.isReleased)
        store.released.join(view);
    else
        store.released = view;
    store.isReleased = true;
}

void WeakMemory::construct(unsigned thread, void const *address, std::uint64_t value, Origin origin)
{
    Word *word = _tables->words.find(address);
    if (!word)
        return;
    begin(*word, value);
    write(thread, *word->newest, Order::RELAXED, origin);
    // A construction is no operation, so it publishes nothing.
    word->newest->isReleased = false;
    word->builder = word->newest->thread;
    word->built = word->newest->event;
    word->construction = origin;
}

WeakMemory::Origin const *WeakMemory::findUnpublished(unsigned thread, void const *address)
{
    Word const *word = _tables->words.find(address);
    if (!word || word->built <= at(thread).view.happened.events[word->builder])
        return nullptr;
    return &word->construction;
}

WeakMemory::Loaded WeakMemory::load(unsigned thread, void const *address, std::uint64_t newest,
                                    Order order, Choice choice)
{
    Word *word = find(address, newest);
    if (!word)
        return {.value = newest};
    Store *stores[HISTORY];
    Loaded loaded;
    unsigned const count = collect(*word, at(thread), order == Order::SEQ_CST, stores);
    Store &store = *stores[count > 1 ? choice(count) : 0];
    read(thread, store, order);
    loaded.value = store.value;
    loaded.read = &store;
    loaded.newest = word->newest;
    return loaded;
}

WeakMemory::Compared WeakMemory::compare(unsigned thread, void const *address, std::uint64_t newest,
                                         std::uint64_t expected, bool isWeak, Order failure,
                                         Choice choice)
{
    Compared compared;
    Word *word = find(address, newest);
    if (!word) {
        compared.value = newest;
        compared.isRefused = newest != expected;
        return compared;
    }
    Store *stores[HISTORY];
    unsigned const count = collect(*word, at(thread), failure == Order::SEQ_CST, stores);
    // The newest value comes first. It is read by the exchange if it is the expected one.
    // Otherwise, and for each older value, the operation is a load. A load of the expected value is
    // a failure without a cause.
    Store *options[HISTORY + 1] = {word->newest};
    unsigned nbOptions = 1;
    for (unsigned i = newest == expected ? 0 : 1; i < count; ++i)
        if (isWeak || stores[i]->value != expected)
            options[nbOptions++] = stores[i];
    unsigned const chosen = nbOptions > 1 ? choice(nbOptions) : 0;
    compared.isRefused = chosen > 0 || newest != expected;
    compared.value = options[chosen]->value;
    compared.read = options[chosen];
    compared.newest = word->newest;
    if (compared.isRefused)
        read(thread, *options[chosen], failure);
    return compared;
}

void WeakMemory::store(unsigned thread, void const *address, std::uint64_t former,
                       std::uint64_t value, Order order, Origin origin)
{
    if (Word *word = find(address, former))
        write(thread, *newStore(*word, value), order, origin);
}

std::uint32_t WeakMemory::change(unsigned thread, void const *address, std::uint64_t former,
                                 std::uint64_t value, Order order, Origin origin)
{
    Word *word = find(address, former);
    if (!word)
        return 0;
    Store &known = *word->newest;
    read(thread, known, order);
    // The store continues the release sequence of the one that was read.
    View const released = known.released;
    bool const isReleased = known.isReleased;
    std::uint32_t const releasing = known.releasing;
    Store &store = *newStore(*word, value);
    store.isReleased = isReleased;
    if (isReleased)
        store.released = released;
    store.releasing = releasing;
    write(thread, store, order, origin);
    return releasing;
}

void WeakMemory::fence(unsigned thread, Order order)
{
    Thread &me = at(thread);
    if (acquires(order))
        me.view.join(me.toAcquire);
    if (order == Order::SEQ_CST) {
        _sequential.happened.join(me.view.happened);
        me.view.fenced.join(_sequential.happened);
        me.view.fence = ++_places;
    }
    if (releases(order)) {
        advance(thread);
        me.released = me.view;
        me.isReleased = true;
    }
}

void WeakMemory::see(unsigned thread, void const *address)
{
    if (Word *word = _tables->words.find(address); word && word->newest)
        read(thread, *word->newest, Order::RELAXED);
}

// ---- Services.

/// Makes what the thread has done with plain data so far a part of what it knows, and so of what it
/// publishes.
void WeakMemory::advance(unsigned thread)
{
    Thread &me = at(thread);
    me.view.happened.events[thread % THREADS] = ++me.events;
}

void WeakMemory::release(unsigned thread, void const *object)
{
    advance(thread);
    if (Object *found = _tables->objects.find(object))
        found->published.join(at(thread).view);
}

void WeakMemory::acquire(unsigned thread, void const *object)
{
    if (Object *found = _tables->objects.find(object))
        at(thread).view.join(found->published);
}

void WeakMemory::forget(void const *object)
{
    if (Object *found = _tables->objects.find(object))
        found->published = {};
}

void WeakMemory::start(unsigned thread, unsigned creator)
{
    advance(creator);
    Thread &child = at(thread);
    Thread const &parent = at(creator);
    child.isShared = child.isShared || thread >= THREADS;
    if (child.isShared) {
        // Another thread with this number may be running. It must not forget anything.
        child.view.join(parent.view);
        return;
    }
    // A former thread of this number may not be known yet. The new one knows it nevertheless.
    child.view = parent.view;
    child.view.happened.events[thread] = child.events;
    child.toAcquire = child.released = {};
    child.isReleased = false;
}

void WeakMemory::join(unsigned thread, unsigned ended)
{
    advance(ended);
    at(thread).view.join(at(ended).view);
}

} // namespace ZvPlatform::Simulated
