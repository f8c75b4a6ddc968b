// Programs that are right or wrong because of the memory order of their operations, or because of
// what the services order.
#include "simulated/scenario.h"

#include "zvbase/platform/shared.h"

using namespace Zv::Simulated;
using ZvPlatform::Shared;

namespace {

constexpr auto RELAXED = ZvPlatform::Order::RELAXED;
constexpr auto ACQUIRE = ZvPlatform::Order::ACQUIRE;
constexpr auto RELEASE = ZvPlatform::Order::RELEASE;
constexpr auto ACQ_REL = ZvPlatform::Order::ACQ_REL;
constexpr auto SEQ_CST = ZvPlatform::Order::SEQ_CST;

constexpr Fault within(unsigned schedules, char const *finding = "does not hold")
{
    return {.finding = finding,
            .byRandom = schedules,
            .byPriority = schedules,
            .byExhaustion = schedules};
}

/// A message and the flag that announces it.
class Mailbox
{
public:
    void post(ZvPlatform::Order order)
    {
        _message.store(1, RELAXED);
        _isThere.store(true, order);
    }
    void read(ZvPlatform::Order order) const
    {
        if (_isThere.load(order))
            HOLDS(_message.load(RELAXED) == 1);
    }
    void look() const { HOLDS(_message.load(RELAXED) == 1); }

private:
    Shared<int> _message{0};
    Shared<bool> _isThere{false};
};

/// Each side says that it comes, and enters if the other side has not said so.
template <class Announce, class Look>
void runBothSides(Announce announce, Look look)
{
    Shared<bool> comes[2];
    Shared<int> inside{0};
    auto const run = [&](int side) {
        announce(comes[side]);
        if (!look(comes[1 - side]))
            HOLDS(inside.fetch_add(1, RELAXED) == 0);
    };
    Worker other("other", [&] { run(1); });
    run(0);
    other.join();
}

} // namespace

// ---- Operations.

SIMULATED(MessageIsPublished, {.preemptions = 3})
{
    Mailbox mailbox;
    Worker sender("sender", [&] { mailbox.post(RELEASE); });
    mailbox.read(ACQUIRE);
}

KNOWN_FAULT(MessageIsNotReleased, within(200), {.preemptions = 3})
{
    Mailbox mailbox;
    Worker sender("sender", [&] { mailbox.post(RELAXED); });
    mailbox.read(ACQUIRE);
}

KNOWN_FAULT(MessageIsNotAcquired, within(200), {.preemptions = 3})
{
    Mailbox mailbox;
    Worker sender("sender", [&] { mailbox.post(RELEASE); });
    mailbox.read(RELAXED);
}

SIMULATED(OneSideEnters, {.preemptions = 3})
{
    runBothSides([](auto &comes) { comes.store(true, SEQ_CST); },
                 [](auto &comes) { return comes.load(SEQ_CST); });
}

SIMULATED(OneSideEntersAfterAFence, {.preemptions = 3})
{
    runBothSides(
        [](auto &comes) {
            comes.store(true, RELAXED);
            ZvPlatform::fence(SEQ_CST);
        },
        [](auto &comes) { return comes.load(RELAXED); });
}

KNOWN_FAULT(BothSidesEnter, within(300), {.preemptions = 3})
{
    runBothSides([](auto &comes) { comes.store(true, RELEASE); },
                 [](auto &comes) { return comes.load(ACQUIRE); });
}

/// The total order of an exchange does not reach a load that only acquires.
KNOWN_FAULT(BothSidesEnterAfterAnExchange, within(300), {.preemptions = 3})
{
    runBothSides([](auto &comes) { comes.exchange(true, SEQ_CST); },
                 [](auto &comes) { return comes.load(ACQUIRE); });
}

KNOWN_FAULT(BothSidesEnterAfterAWeakFence, within(300), {.preemptions = 3})
{
    runBothSides(
        [](auto &comes) {
            comes.store(true, RELAXED);
            ZvPlatform::fence(ACQ_REL);
        },
        [](auto &comes) { return comes.load(RELAXED); });
}

namespace {

void runSpinLock(ZvPlatform::Order taking, ZvPlatform::Order leaving)
{
    Shared<bool> isTaken{false};
    Shared<int> count{0};
    auto const run = [&] {
        for (bool free = false; !isTaken.compare_exchange_weak(free, true, taking, RELAXED);
             free = false)
            ::Sleep(0);
        count.store(count.load(RELAXED) + 1, RELAXED);
        isTaken.store(false, leaving);
    };
    Worker other("other", run);
    run();
    other.join();
    HOLDS(count.load(RELAXED) == 2);
}

} // namespace

SIMULATED(SpinLockGuards, {.preemptions = 2})
{
    runSpinLock(ACQUIRE, RELEASE);
}

KNOWN_FAULT(SpinLockDoesNotAcquire, within(300), {.preemptions = 2})
{
    runSpinLock(RELAXED, RELEASE);
}

KNOWN_FAULT(SpinLockDoesNotRelease, within(300), {.preemptions = 2})
{
    runSpinLock(ACQUIRE, RELAXED);
}

/// A weak compare-exchange may fail although the word has the expected value.
KNOWN_FAULT(TrustsAWeakExchange, within(50), {.preemptions = 1})
{
    Shared<int> word{1};
    int expected = 1;
    HOLDS(word.compare_exchange_weak(expected, 2, SEQ_CST));
}

SIMULATED(StrongExchangeHasACause, {})
{
    Shared<int> word{1};
    int expected = 1;
    HOLDS(word.compare_exchange_strong(expected, 2, RELAXED));
    HOLDS(!word.compare_exchange_strong(expected, 3, RELAXED) && expected == 2);
}

/// The comparison that fails is a load, so it may read an older value.
KNOWN_FAULT(TrustsAFailedExchange, within(300), {.preemptions = 3})
{
    Shared<int> word{0};
    Shared<bool> isChanged{false};
    Worker other("other", [&] {
        word.store(1, RELAXED);
        isChanged.store(true, RELAXED);
    });
    if (isChanged.load(RELAXED)) {
        int expected = 7;
        HOLDS(!word.compare_exchange_strong(expected, 8, SEQ_CST, RELAXED) && expected == 1);
    }
}

SIMULATED(ChangesLoseNothing, {.preemptions = 2})
{
    Shared<int> sum{0};
    auto const add = [&] {
        sum.fetch_add(1, RELAXED);
        sum.fetch_sub(3, RELAXED);
    };
    Worker other("other", add);
    add();
    other.join();
    HOLDS(sum.load(RELAXED) == -4);
}

/// A pointer that does not publish what it points to.
KNOWN_FAULT(WordIsNotPublished, within(100, "unpublished word"), {.preemptions = 3})
{
    Shared<Shared<int> *> published{nullptr};
    Worker maker("maker", [&] { published.store(new Shared<int>(1), RELAXED); });
    if (Shared<int> *word = published.load(ACQUIRE))
        HOLDS(word->load(RELAXED) == 1);
}

SIMULATED(WordIsPublished, {.preemptions = 3})
{
    Shared<Shared<int> *> published{nullptr};
    Worker maker("maker", [&] { published.store(new Shared<int>(1), RELEASE); });
    if (Shared<int> *word = published.load(ACQUIRE))
        HOLDS(word->load(RELAXED) == 1);
}

/// A new word at the same place has nothing of the former one's history.
SIMULATED(WordBeginsAnew, {.preemptions = 2})
{
    alignas(Shared<int>) unsigned char place[sizeof(Shared<int>)];
    auto *word = new (place) Shared<int>(1);
    word->store(2, RELAXED);
    word = new (place) Shared<int>(3);
    Worker reader("reader", [&] { HOLDS(word->load(RELAXED) == 3); });
}

/// The report says which value was read, and the place of the newer store.
KNOWN_FAULT(
    OlderValueIsReported,
    (Fault{.finding = "does not hold", .byRandom = 300, .text = "0 instead of 0x29 was read from"}),
    {.hasty = false})
{
    Shared<int> word{0};
    setName(&word, "the word");
    Worker other("other", [&] { word.store(41, RELAXED); });
    ::Sleep(100);
    HOLDS(word.load(RELAXED) == 41);
}

// ---- What the services order. The message is relaxed, and the service is the only order.

SIMULATED(ThreadSeesWhatItsCreatorWrote, {.preemptions = 2})
{
    Mailbox mailbox;
    mailbox.post(RELAXED);
    Worker reader("reader", [&] { mailbox.look(); });
}

SIMULATED(EndOfAThreadPublishes, {.preemptions = 2})
{
    Mailbox mailbox;
    Worker sender("sender", [&] { mailbox.post(RELAXED); });
    sender.join();
    mailbox.look();
}

KNOWN_FAULT(TimeOutPublishesNothing, within(300), {.preemptions = 3})
{
    Mailbox mailbox;
    Worker sender("sender", [&] { mailbox.post(RELAXED); });
    ::WaitForSingleObject(sender.getHandle(), 0);
    ::Sleep(0);
    mailbox.read(RELAXED);
}

SIMULATED(EndOfAKilledThreadPublishes, {.leftOver = {0, 1}})
{
    Mailbox mailbox;
    Shared<bool> isDone{false};
    Worker sender("sender", [&] {
        mailbox.post(RELAXED);
        isDone.store(true, RELAXED);
        ::Sleep(INFINITE);
    });
    while (!isDone.load(RELAXED))
        ::Sleep(1);
    ::TerminateThread(sender.getHandle(), 0);
    mailbox.look();
}

SIMULATED(MutexPublishes, {.preemptions = 2})
{
    Shared<int> count{0};
    HANDLE const mutex = ::CreateMutexA(nullptr, FALSE, nullptr);
    auto const add = [&] {
        ::WaitForSingleObject(mutex, INFINITE);
        count.store(count.load(RELAXED) + 1, RELAXED);
        ::ReleaseMutex(mutex);
    };
    Worker first("first", add);
    Worker second("second", add);
    add();
    first.join();
    second.join();
    HOLDS(count.load(RELAXED) == 3);
    ::CloseHandle(mutex);
}

SIMULATED(CriticalSectionPublishes, {.preemptions = 2})
{
    Shared<int> count{0};
    CRITICAL_SECTION section;
    ::InitializeCriticalSection(&section);
    auto const add = [&] {
        ::EnterCriticalSection(&section);
        count.store(count.load(RELAXED) + 1, RELAXED);
        ::LeaveCriticalSection(&section);
    };
    Worker other("other", add);
    add();
    other.join();
    HOLDS(count.load(RELAXED) == 2);
    ::DeleteCriticalSection(&section);
}

SIMULATED(EventPublishes, {.preemptions = 2})
{
    Mailbox mailbox;
    HANDLE const event = ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
    Worker sender("sender", [&] {
        mailbox.post(RELAXED);
        ::SetEvent(event);
    });
    ::WaitForSingleObject(event, INFINITE);
    mailbox.look();
    sender.join();
    ::CloseHandle(event);
}

SIMULATED(SemaphorePublishes, {.preemptions = 2})
{
    Mailbox mailbox;
    HANDLE const semaphore = ::CreateSemaphoreA(nullptr, 0, 1, nullptr);
    Worker sender("sender", [&] {
        mailbox.post(RELAXED);
        ::ReleaseSemaphore(semaphore, 1, nullptr);
    });
    ::WaitForSingleObject(semaphore, INFINITE);
    mailbox.look();
    sender.join();
    ::CloseHandle(semaphore);
}

/// A thread sees no less than the value for which its wait has ended, but nothing that was written
/// before.
SIMULATED(WaitOnAddressSeesTheWord, {.preemptions = 2})
{
    Shared<std::uint32_t> word{0};
    Worker waker("waker", [&] {
        word.store(1, RELAXED);
        ::WakeByAddressAll(&word);
    });
    std::uint32_t const first = 0;
    while (word.load(RELAXED) == first)
        ::WaitOnAddress(&word, const_cast<std::uint32_t *>(&first), sizeof first, INFINITE);
}

KNOWN_FAULT(WaitOnAddressPublishesNothing, within(300), {.preemptions = 3})
{
    Shared<std::uint32_t> word{0};
    Mailbox mailbox;
    Worker waker("waker", [&] {
        mailbox.post(RELAXED);
        word.store(1, RELEASE);
        ::WakeByAddressAll(&word);
    });
    std::uint32_t const first = 0;
    while (word.load(RELAXED) == first)
        ::WaitOnAddress(&word, const_cast<std::uint32_t *>(&first), sizeof first, INFINITE);
    mailbox.look();
}

/// The waiter compares only a part of the word, which must not change what the word publishes.
SIMULATED(WaitForAPartOfAWordKeepsItsHistory, {.preemptions = 2})
{
    Shared<std::uint64_t> word{0};
    Mailbox mailbox;
    Worker writer("writer", [&] {
        mailbox.post(RELAXED);
        word.store(std::uint64_t{1} << 32, RELEASE);
    });
    Worker waiter("waiter", [&] {
        std::uint32_t another = 1;
        ::WaitOnAddress(&word, &another, sizeof another, INFINITE);
    });
    if (word.load(ACQUIRE))
        mailbox.look();
}

/// A handle is closed by each of two threads. A third one finds that the name is free again.
SIMULATED(CloseOfANamePublishes, {.preemptions = 2})
{
    constexpr char NAME[] = "closed by two";
    Shared<int> count{0};
    HANDLE const mine = ::CreateMutexA(nullptr, FALSE, NAME);
    HANDLE const same = ::CreateMutexA(nullptr, FALSE, NAME);
    Worker first("first", [&] {
        count.fetch_add(1, RELAXED);
        ::CloseHandle(mine);
    });
    Worker second("second", [&] {
        count.fetch_add(1, RELAXED);
        ::CloseHandle(same);
    });
    HANDLE const next = ::CreateMutexA(nullptr, FALSE, NAME);
    if (::GetLastError() != ERROR_ALREADY_EXISTS)
        HOLDS(count.load(RELAXED) == 2);
    first.join();
    second.join();
    ::CloseHandle(next);
}
