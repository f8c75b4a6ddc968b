// Data races, and programs that are free of them although they look similar. The schedules show a
// race only if the build has ZV_RACES.
#include "platform/scheduler/weakMemory.h"
#include "resmgt/locks/lkMutex.h"
#include "simulated/scenario.h"
#include "zvbase/platform/shared.h"

#include <memory>
#include <string>
#include <vector>

#ifdef ZV_RACES

/// A program with a known data race. These have a suite of their own, which `./run tests` runs.
#define RACING(NAME, FAULT)                                                                        \
    static void run##NAME();                                                                       \
    static Enter const enter##NAME("DataRaces", {#NAME, Settings(), run##NAME, FAULT}, __FILE__,   \
                                   __LINE__);                                                      \
    static void run##NAME()

namespace Zv::Simulated {

namespace {

using ZvPlatform::Order;
using ZvPlatform::Shared;

/// The fault that each strategy must find in so many schedules. The text of the failure contains
/// `text`.
constexpr Fault race(unsigned byRandom, unsigned byPriority, char const *text = "")
{
    return {.finding = "data race", .byRandom = byRandom, .byPriority = byPriority, .text = text};
}

/// A text that one thread leaves for another, and a flag that tells of it.
struct Letter
{
    Letter() { setName(&text, "the text"); }

    int text = 0;
    Shared<bool> isThere{false};
};

void passLetter(Order telling, Order hearing)
{
    Letter letter;
    Worker writer("writer", [&] {
        letter.text = 1;
        letter.isThere.store(true, telling);
    });
    if (letter.isThere.load(hearing))
        HOLDS(letter.text == 1);
}

void passLetterByFences(Order telling, Order hearing)
{
    Letter letter;
    Worker writer("writer", [&] {
        letter.text = 1;
        ZvPlatform::fence(telling);
        letter.isThere.store(true, Order::RELAXED);
    });
    if (!letter.isThere.load(Order::RELAXED))
        return;
    ZvPlatform::fence(hearing);
    HOLDS(letter.text == 1);
}

void publishByPointer(Order publishing)
{
    auto const letter = std::make_unique<Letter>();
    Shared<Letter *> published{nullptr};
    Worker writer("writer", [&] {
        letter->text = 1;
        published.store(letter.get(), publishing);
    });
    if (Letter const *found = published.load(Order::ACQUIRE))
        HOLDS(found->text == 1);
}

/// Two threads hold a letter. The last one deletes it.
void shareLetter(Order leaving)
{
    auto *letter = new Letter;
    Shared<int> holders{2};
    auto const leave = [&] {
        HOLDS(letter->text == 0);
        if (holders.fetch_sub(1, leaving) == 1)
            delete letter;
    };
    Worker other("other", leave);
    leave();
}

} // namespace

// ---- Races. The text of a failure names both accesses.

RACING(LetterIsNotReleased, race(20, 50, "write of 4 bytes"))
{
    passLetter(Order::RELAXED, Order::ACQUIRE);
}

RACING(LetterIsNotAcquired, race(20, 50, "read of 4 bytes"))
{
    passLetter(Order::RELEASE, Order::RELAXED);
}

RACING(LetterHasNoReleaseFence, race(20, 50, "the text happens"))
{
    passLetterByFences(Order::ACQUIRE, Order::ACQUIRE);
}

RACING(LetterHasNoAcquireFence, race(20, 50, "the text happens"))
{
    passLetterByFences(Order::RELEASE, Order::RELEASE);
}

RACING(FlagIsPlain, race(1, 1, "write of 4 bytes"))
{
    int flag = 0;
    Worker writer("writer", [&] { flag = 1; });
    HOLDS(flag == 0 || flag == 1);
}

RACING(PointerIsRelaxed, race(20, 50, "publishByPointer"))
{
    publishByPointer(Order::RELAXED);
}

RACING(LockIsLeftTooEarly, race(5, 5, "read of 4 bytes"))
{
    LkMutex lock("lock");
    int count = 0;
    auto const increase = [&] {
        lock.lock();
        int const before = count;
        lock.unlock();
        count = before + 1;
    };
    Worker other("other", increase);
    increase();
}

RACING(LetterIsFreedWhileItIsRead, race(20, 50, "release of the memory"))
{
    auto *letter = new Letter;
    Worker reader("reader", [letter] { HOLDS(letter->text == 0); });
    delete letter;
}

RACING(LastHolderDoesNotAcquire, race(20, 50, "release of the memory"))
{
    shareLetter(Order::RELEASE);
}

RACING(TextIsCopiedWhileItIsWritten, race(5, 5))
{
    std::string text(100, 'a');
    Worker writer("writer", [&] { text.assign(100, 'b'); });
    std::string const copy = text;
}

RACING(ListGrowsWhileItIsRead, race(5, 5))
{
    std::vector<int> list(3);
    Worker writer("writer", [&] { list.push_back(1); });
    int sum = 0;
    for (int one : list)
        sum += one;
    HOLDS(sum <= 1);
}

RACING(BytesOfTheSecondHalfRace, race(1, 1, "write of 1 bytes"))
{
    char bytes[8] = {};
    Worker writer("writer", [&] { bytes[5] = 1; });
    std::string const copy(bytes + 4, 4);
    HOLDS(copy.size() == 4 && copy[0] == 0);
}

// ---- Words that the memory model does not follow carry no order.

namespace {

/// Passes a letter by the last one of many words.
void passLetterByTheLast(std::size_t nbWords)
{
    std::vector<Shared<int>> words(nbWords);
    int text = 0;
    Worker writer("writer", [&] {
        text = 1;
        words.back().store(1, Order::RELEASE);
    });
    if (words.back().load(Order::ACQUIRE))
        HOLDS(text == 1);
}

constexpr std::size_t LIMIT = ZvPlatform::Simulated::WeakMemory::WORDS;

} // namespace

RACING(LetterIsPassedByAWordTooMany, (Fault{.finding = "too many words",
                                            .byRandom = 20,
                                            .byPriority = 50,
                                            .text = "The memory model follows 32768 words"}))
{
    passLetterByTheLast(LIMIT + 1);
}

SIMULATED(LetterIsPassedByOneOfManyWords, {.schedules = 50})
{
    passLetterByTheLast(LIMIT - 1000); // others are those of the services and of the worker
}

// ---- No races.

SIMULATED(LetterIsPublished, {.schedules = 200, .preemptions = 1})
{
    passLetter(Order::RELEASE, Order::ACQUIRE);
    passLetterByFences(Order::RELEASE, Order::ACQUIRE);
    publishByPointer(Order::RELEASE);
}

SIMULATED(LastHolderFrees, {.schedules = 200, .preemptions = 1})
{
    shareLetter(Order::ACQ_REL);
}

SIMULATED(NeighboursDoNotRace, {.schedules = 50})
{
    char bytes[8] = {};
    Worker writer("writer", [&] { bytes[5] = 1; });
    bytes[4] = bytes[6] = 1;
}

SIMULATED(MemoryAndStacksAreNewAgain, {.schedules = 200})
{
    auto const useMemory = [] {
        for (int i = 0; i < 3; ++i) {
            auto const letter = std::make_unique<Letter>();
            letter->text = i;
            step("use");
            int onStack[100];
            std::fill(std::begin(onStack), std::end(onStack), i);
            HOLDS(onStack[letter->text] == i);
        }
    };
    for (int i = 0; i < 2; ++i) {
        Worker one("one", useMemory);
        Worker other("other", useMemory);
        useMemory();
    }
}

SIMULATED(ExceptionsAreNewMemory, {.schedules = 100})
{
    auto const fail = [] {
        for (int i = 0; i < 3; ++i)
            try {
                step("throw");
                throw std::string(50, 'a');
            } catch (std::string const &text) {
                HOLDS(text.size() == 50);
            }
    };
    Worker other("other", fail);
    fail();
}

SIMULATED(StaticIsConstructedOnce, {.schedules = 100})
{
    auto const getLetter = []() -> Letter & {
        static Letter letter;
        return letter;
    };
    Worker other("other", [&] { HOLDS(getLetter().text == 0); });
    HOLDS(getLetter().text == 0);
}

} // namespace Zv::Simulated

#endif
