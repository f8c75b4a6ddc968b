// Memory model of the simulated form: what a thread may read from a word that threads share.
//
// The words follow the C++20 memory model. A load may return any store that the order of the word's
// stores and the happens-before relation permit. The model is operational: it is told of each
// operation when the operation is carried out, and knows nothing of those to come.
//
// Events are counted for each thread. A clock holds, for each thread, how many of its events are
// known, so a clock is a set of events that is closed under the order of each thread. What happens
// before an event is such a set. A store publishes the set of its thread if it releases, and a load
// that acquires adds the set of the store that it reads to that of its own thread.
#pragma once

#include "zvbase/platform/shared.h"

#include <cstdint>

namespace ZvPlatform::Simulated {

// A word that is not followed orders nothing, which the detector of races would take for a race.
#ifdef ZV_RACES
inline constexpr unsigned MAX_WORDS = 1 << 15;
#else
inline constexpr unsigned MAX_WORDS = 1 << 13;
#endif

class WeakMemory
{
public:
    /// Threads with the same remainder share a number in the clocks. They know too much of each
    /// other, so that fewer older values are read, but never one that is not permitted.
    static constexpr unsigned THREADS = 16;
    /// Number of stores to a word that can still be read.
    static constexpr unsigned HISTORY = 8;
    /// Number of words, and of objects of the services, that are followed. A load of another word
    /// returns the newest value, and other words and objects publish nothing.
    static constexpr unsigned WORDS = MAX_WORDS;
    static constexpr unsigned OBJECTS = 1 << 13;

    /// Number of known events of each thread.
    struct Clock
    {
        std::uint32_t events[THREADS] = {};

        void join(Clock const &);
    };

    struct View
    {
        Clock happened; ///< what happens before
        /// What happens before a sequentially consistent fence that precedes a known one in the
        /// single total order S.
        Clock fenced;
        /// Place in S of the latest known sequentially consistent fence, or 0.
        std::uint32_t fence = 0;

        void join(View const &);
    };

    /// The step and the thread that stored a value, for reports.
    struct Origin
    {
        std::uint32_t step = 0;
        std::uint32_t thread = 0;
        void *place = nullptr;
        std::uint32_t order = 0; ///< number of the memory order, if they are listed
    };

    struct Store
    {
        static constexpr std::uint32_t NEVER = UINT32_MAX;

        std::uint64_t value;
        Store *older;
        std::uint32_t event;
        std::uint8_t thread;
        bool isReleased;
        /// Place in S of the first sequentially consistent operation that stored or read the value,
        /// or 0.
        std::uint32_t place;
        /// For each thread its first event that has read the value.
        std::uint32_t readers[THREADS];
        View released; ///< what an acquiring load of the value comes to know, if `isReleased`
        std::uint32_t releasing; ///< number of the memory order that has released it, if listed
        Origin origin;
    };

    /// Returns the number of the store that is read, from 0 for the newest. `count` is at least 2.
    using Choice = unsigned (*)(unsigned count);

    /// Result of a load.
    struct Loaded
    {
        std::uint64_t value;
        /// The store that was read, and the newest. Null if the word is not followed.
        Store const *read = nullptr;
        Store const *newest = nullptr;

        bool isOlder() const { return read != newest; }
    };

    /// Result of a compare-exchange.
    struct Compared : Loaded
    {
        bool isRefused = false;
    };

    constexpr WeakMemory() = default;

    /// Forgets everything.
    void reset();

    // ---- Words. `newest` and `former` are what the memory holds. If that is not the newest known
    // store, the word was written by other means, and its history begins again.

    void construct(unsigned thread, void const *word, std::uint64_t value, Origin);
    /// Returns the construction of a word if it does not happen before what the thread does next,
    /// otherwise null.
    Origin const *findUnpublished(unsigned thread, void const *word);
    Loaded load(unsigned thread, void const *word, std::uint64_t newest, Order, Choice);
    /// Decides whether a compare-exchange fails, and loads the value if it does. A failure may read
    /// an older value, and a weak operation may fail without a cause. If it does not fail, `change`
    /// must follow.
    Compared compare(unsigned thread, void const *word, std::uint64_t newest,
                     std::uint64_t expected, bool isWeak, Order failure, Choice);
    void store(unsigned thread, void const *word, std::uint64_t former, std::uint64_t value, Order,
               Origin);
    /// Carries out a read-modify-write, which reads the newest value. Returns the number of the
    /// memory order that has released what was read, if they are listed.
    std::uint32_t change(unsigned thread, void const *word, std::uint64_t former,
                         std::uint64_t value, Order, Origin);
    void fence(unsigned thread, Order);
    /// The thread has seen the newest value, or a part of it, without an order.
    void see(unsigned thread, void const *word);

    /// Returns whether all words and objects are followed. If not, more may happen before an event
    /// than is known.
    bool followsAll() const { return !_tables->words.isTooSmall && !_tables->objects.isTooSmall; }

    /// Returns what happens before the next step of a thread.
    Clock const &getHappened(unsigned thread) const
    {
        return _threads[thread % THREADS].view.happened;
    }

    // ---- Services.

    /// What the thread knows is published at an object of the services.
    void release(unsigned thread, void const *object);
    /// The thread comes to know what has been published at an object of the services.
    void acquire(unsigned thread, void const *object);
    void forget(void const *object);
    /// A thread begins, and knows what its creator knows.
    void start(unsigned thread, unsigned creator);
    /// A thread comes to know all that another one knows, which has ended.
    void join(unsigned thread, unsigned ended);

    // ---- Plain data.

    /// Returns the number of the thread's next event. Until then, the thread's accesses to plain
    /// data belong to this event.
    std::uint32_t nextEvent(unsigned thread) const { return _threads[thread % THREADS].events + 1; }
    /// Returns whether an event of another thread happens before what the thread does next.
    bool happensBefore(unsigned other, std::uint32_t event, unsigned thread) const
    {
        return event <= _threads[thread % THREADS].view.happened.events[other];
    }

private:
    struct Word
    {
        void const *address;
        Store *newest;
        unsigned count;
        // The construction, or event 0 if the history began without one.
        std::uint8_t builder;
        std::uint32_t built;
        Origin construction;
    };
    struct Object
    {
        void const *address;
        View published;
    };
    struct Thread
    {
        View view;
        View toAcquire;  ///< what an acquire fence adds to the view
        View released;   ///< the view at the latest release fence
        bool isReleased; ///< there was a release fence
        bool isShared;   ///< several threads have this remainder
        std::uint32_t events;
    };

    /// Table of at most `SIZE` entries with an address. The entries are in the order of their first
    /// use, so that a schedule touches few pages of memory.
    template <class Entry, unsigned SIZE>
    struct Table
    {
        /// Returns the entry of an address, or a new one. Returns null if the table is full.
        Entry *find(void const *address);
        void clear();

        Entry entries[SIZE];
        unsigned count;
        bool isTooSmall; ///< an address has no entry

    private:
        /// Returns the place for the number of an address, which is 0 if there is no entry yet.
        std::uint16_t &numberOf(void const *address);

        Entry *_latest;                   ///< which was found last
        std::uint16_t _numbers[2 * SIZE]; ///< from 1, half of them are 0 at least
        static_assert(SIZE <= UINT16_MAX);
    };

    struct Tables
    {
        Table<Word, WORDS> words;
        Table<Object, OBJECTS> objects;
        Store stores[WORDS * HISTORY + 1];
    };

    Thread &at(unsigned thread) { return _threads[thread % THREADS]; }
    Word *find(void const *word, std::uint64_t newest);
    Store *newStore(Word &, std::uint64_t value);
    void begin(Word &, std::uint64_t value);
    void drop(Store *);
    void advance(unsigned thread);
    bool isKnown(Store const &, Thread const &, bool isSequential) const;
    unsigned collect(Word const &, Thread const &, bool isSequential, Store *(&)[HISTORY]) const;
    void read(unsigned thread, Store &, Order);
    void write(unsigned thread, Store &, Order, Origin);

    Thread _threads[THREADS] = {};
    View _sequential = {}; ///< what happens before the fences in S
    std::uint32_t _places = 0;
    Tables *_tables = nullptr;
    unsigned _nbStores = 0;
    Store *_free = nullptr;
};

} // namespace ZvPlatform::Simulated
