// Threads that wait for objects of all kinds, in random order. What one wait leaves behind meets
// the next one, which is of another kind.
#include "platform/platformTest.h"

#include <array>
#include <atomic>
#include <random>

namespace ZvTest {

namespace {

struct Mixture
{
    struct Guarded
    {
        Owned mutex = ZvTest::mutex();
        long rounds = 0;
    };

    std::array<Guarded, 2> guarded;
    std::array<Owned, 2> events = {autoEvent(), manualEvent()};
    Owned tokens = semaphore();
    std::atomic<long> released{0}, taken{0};
    Owned timer{CreateWaitableTimerA(nullptr, FALSE, nullptr)};
    std::atomic<std::uint32_t> word{0};
};

class Worker
{
public:
    Worker(Mixture &mixture, unsigned seed) : _mixture(mixture), _random(seed) {}

    void step()
    {
        switch (below(9)) {
        case 0:
        case 1:
            guarded();
            break;
        case 2:
            event();
            break;
        case 3:
            wait(_mixture.events[below(2)]);
            break;
        case 4:
            ++_mixture.released;
            EXPECT_TRUE(ReleaseSemaphore(_mixture.tokens, 1, nullptr));
            break;
        case 5:
            takeToken();
            break;
        case 6:
            timer();
            break;
        case 7:
            address();
            break;
        case 8:
            thread();
            break;
        }
    }

    std::array<long, 2> rounds{};

private:
    unsigned below(unsigned end) { return static_cast<unsigned>(_random() % end); }

    bool wait(HANDLE handle)
    {
        DWORD const result = WaitForSingleObject(handle, below(3));
        EXPECT_TRUE(result == WAIT_OBJECT_0 || result == WAIT_TIMEOUT);
        return result == WAIT_OBJECT_0;
    }

    void guarded()
    {
        unsigned const which = below(2);
        Mixture::Guarded &mine = _mixture.guarded[which];
        if (!wait(mine.mutex))
            return;
        ++mine.rounds;
        ++rounds[which];
        // The owner may be slow, and may wait for other objects.
        if (below(4) == 0)
            takeToken();
        if (below(8) == 0)
            Sleep(below(2));
        EXPECT_TRUE(ReleaseMutex(mine.mutex));
    }

    void takeToken()
    {
        if (wait(_mixture.tokens))
            ++_mixture.taken;
    }

    void event()
    {
        HANDLE const event = _mixture.events[below(2)];
        switch (below(3)) {
        case 0:
            EXPECT_TRUE(SetEvent(event));
            break;
        case 1:
            EXPECT_TRUE(ResetEvent(event));
            break;
        default:
            EXPECT_TRUE(PulseEvent(event));
        }
    }

    void timer()
    {
        if (below(2) == 0) {
            LARGE_INTEGER due;
            due.QuadPart = -LONGLONG{below(20000)}; // up to two milliseconds from now
            EXPECT_TRUE(SetWaitableTimer(_mixture.timer, &due, static_cast<LONG>(below(3)), nullptr,
                                         nullptr, FALSE));
        } else {
            wait(_mixture.timer);
        }
    }

    void address()
    {
        switch (below(3)) {
        case 0:
            ++_mixture.word;
            WakeByAddressSingle(&_mixture.word);
            break;
        case 1:
            ++_mixture.word;
            WakeByAddressAll(&_mixture.word);
            break;
        default:
            std::uint32_t seen = _mixture.word;
            if (!WaitOnAddress(&_mixture.word, &seen, sizeof seen, below(3))) {
                EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
            }
        }
    }

    /// Runs a thread for a single wait. The next thread reuses its block.
    void thread()
    {
        HANDLE const event = _mixture.events[below(2)];
        DWORD const patience = below(3);
        Runner guest([=] { return WaitForSingleObject(event, patience); });
        if (below(2) == 0)
            wait(guest.handle());
    }

    Mixture &_mixture;
    std::mt19937 _random;
};

} // namespace

TEST(PlatformMixture, ThreadsGoFromAnyWaitToAnyOther)
{
    constexpr int THREADS = 8, STEPS = 500;
    Mixture mixture;
    std::array<std::atomic<long>, 2> rounds{};
    {
        std::vector<std::unique_ptr<Runner>> runners;
        for (unsigned i = 0; i < THREADS; ++i)
            runners.push_back(std::make_unique<Runner>([&, i] {
                Worker worker(mixture, i);
                for (int step = 0; step < STEPS; ++step)
                    worker.step();
                rounds[0] += worker.rounds[0];
                rounds[1] += worker.rounds[1];
                return 0;
            }));
    }
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(mixture.guarded[i].rounds, rounds[i]);
    while (WaitForSingleObject(mixture.tokens, 0) == WAIT_OBJECT_0)
        ++mixture.taken;
    EXPECT_EQ(mixture.taken, mixture.released);
}

} // namespace ZvTest
