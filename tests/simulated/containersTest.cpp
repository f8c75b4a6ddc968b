// The queue between threads, and the counting of requests.
#include "simulated/scenario.h"

#include "resmgt/locks.h"
#include "resmgt/threadExtensions/mtContainer.h"
#include "resmgt/threadExtensions/mtContainer.imp.h"
#include "resmgt/threadExtensions/mtRequestMgr.h"

#include <queue>

using namespace Zv;
using namespace Zv::Simulated;

namespace {

using Numbers = std::queue<int>;
using Queue = MtContainer<Numbers>;

/// Counts the elements that were produced and not consumed yet.
class Observer : public Queue::Observer
{
public:
    explicit Observer(LkCounter<long> &balance) : _balance(balance) {}

    void performDestroyed(Queue &) override {}
    void performProduced(Queue &queue, int const &) override
    {
        ++_balance;
        static_cast<void>(queue.getSize());
    }
    void performConsumed(Queue &, int const &) override { --_balance; }

private:
    LkCounter<long> &_balance;
};

} // namespace

SIMULATED(QueueBounded, {.schedules = 500, .leaks = true})
{
    Queue queue("queue", 1);
    auto const produce = [&](int from) {
        for (int i = 0; i < 2; ++i)
            queue.produce(from + i);
    };
    int sums[2] = {};
    auto const consume = [&](int &sum) {
        for (int i = 0; i < 2; ++i)
            sum += queue.consume();
    };
    Worker producerA("producerA", [&] { produce(1); });
    Worker producerB("producerB", [&] { produce(10); });
    Worker consumer("consumer", [&] { consume(sums[0]); });
    consume(sums[1]);
    consumer.join();
    HOLDS(sums[0] + sums[1] == 1 + 2 + 10 + 11);
    HOLDS(queue.isEmpty());
}

SIMULATED(QueueKeepsTheOrder, {.preemptions = 1})
{
    Queue queue("queue", 2);
    Worker producer("producer", [&] {
        for (int i = 1; i <= 4; ++i)
            queue.produce(i);
    });
    for (int i = 1; i <= 4; ++i)
        HOLDS(queue.consume() == i);
}

// The producer may find the queue full just before the consumer, which has taken the element over
// already, makes room.
SIMULATED(QueueWithRoomForOne, {.preemptions = 2})
{
    Queue queue("queue", 1);
    Worker producer("producer", [&] {
        queue.produce(1);
        queue.produce(2);
    });
    HOLDS(queue.consume() == 1);
    HOLDS(queue.consume() == 2);
}

SIMULATED(QueueTriedAndTimed, {.schedules = 500})
{
    Queue queue("queue", 1);
    int produced = 0;
    int consumed = 0;
    Worker producer("producer", [&] {
        for (int i = 0; i < 3; ++i)
            produced += queue.tryProduce(1);
        queue.produce(1);
        ++produced;
    });
    Worker consumer("consumer", [&] {
        int element = 0;
        for (int i = 0; i < 3; ++i)
            if (queue.timedConsume(element, 0.001))
                consumed += element;
    });
    consumer.join();
    int element = 0;
    // The producer waits until the queue has room for its last element.
    while (::WaitForSingleObject(producer.getHandle(), 0) == WAIT_TIMEOUT)
        if (queue.timedConsume(element, 0.001))
            consumed += element;
    while (queue.tryConsume(element))
        consumed += element;
    HOLDS(produced == consumed);
}

SIMULATED(QueueObserved, {.schedules = 300, .leaks = true})
{
    LkCounter<long> balance;
    {
        Queue queue("queue", 0);
        queue.setObserver(RCShdPtr<Queue::Observer>(new Observer(balance)));
        Worker producer("producer", [&] {
            queue.produce(1);
            queue.produce(2);
        });
        Worker consumer("consumer", [&] { static_cast<void>(queue.consume()); });
        static_cast<void>(queue.consume());
    }
    HOLDS(balance.getValue() == 0);
}

SIMULATED(Requests, {.schedules = 300})
{
    MtRequestMgr requests;
    MtRequestTag const tag = requests.acquireTag();
    int done = 0;
    requests.incRequestCount(tag);
    requests.incRequestCount(tag);
    auto const serve = [&] {
        __atomic_add_fetch(&done, 1, __ATOMIC_RELAXED);
        requests.decRequestCount(tag);
    };
    Worker first("first", serve);
    Worker second("second", serve);
    Worker other("other", [&] {
        MtRequestTag const mine = requests.acquireTag();
        requests.incRequestCount(mine);
        requests.decRequestCount(mine);
        requests.waitRequestCountZero(mine);
        requests.releaseTag(mine);
    });
    requests.waitRequestCountZero(tag);
    HOLDS(done == 2);
    requests.releaseTag(tag);
}
