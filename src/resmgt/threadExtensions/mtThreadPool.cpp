#include "resmgt/threadExtensions/mtThreadPool.h"

#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/priority.h"
#include "zvbase/platform/shared.h"
#include "zvbase/scope.private.h"

#include <cstdio>
#include <utility>

namespace Zv {

// ---- MtThreadPool::PoolWorker

class MtThreadPool::PoolWorker final : public MtThreadProtocol
{
public:
    PoolWorker(MtThreadPool &pool, unsigned index) : _pool(pool), _index(index) {}

    void performAttach(MtThread *thread) override
    {
        _relation.reset(new PriorityRelation("equalGroup", _pool, PriorityRelation::EQUAL,
                                             thread->getPriority()));
    }
    void performDetach(MtThread *) override { _relation.reset(); }
    void performExecute(MtThread *) override
    {
        do {
            _pool.obtainTask(_index);
            _pool.executeTask(_index);
            _pool.doneTask(_index);
        } while (_pool.isRunning());
    }
    void performStop(MtThread *) override {}

private:
    MtThreadPool &_pool;
    unsigned _index;
    ObjPtr<PriorityRelation> _relation;
};

// ---- MtThreadPool

namespace {

LiString makeWorkerName(LiString const &pool, unsigned index)
{
    char number[16];
    std::snprintf(number, sizeof number, "%2u", index);
    return pool + number;
}

} // namespace

MtThreadPool::MtThreadPool(LiString const &name, unsigned nbThreads, bool placeThreads,
                           unsigned stackSize)
    : Priority(name, MtPriorityMgr::getInstance(), NOT_SET, NEVER),
      _nbThreads(nbThreads),
      _threads(new ObjPtr<MtThread>[nbThreads]),
      _placeThreads(placeThreads),
      _isRunning(false)
{
    join(); // for the relations of the workers; it is told nothing, so that it may be incomplete
    for (unsigned i = 0; i != _nbThreads; ++i) {
        ObjPtr<MtThreadProtocol> worker(new PoolWorker(*this, i));
        _threads[i] = MtThreadFactory::getInstance().createThread(
            makeWorkerName(name, i), std::move(worker), MtThreadFactory::StoredException::TERMINATE,
            stackSize);
    }
}

MtThreadPool::MtThreadPool(LiString const &name, unsigned nbThreads, Placement placement,
                           unsigned stackSize)
    : MtThreadPool(name, nbThreads, placement == Placement::ONE_PROCESSOR_EACH, stackSize)
{}

MtThreadPool::~MtThreadPool() noexcept(false)
{
    // If this fails, the destructors of the threads wait for them once more.
    throwUnlessUnwinding(Unwinding::ofAny(), __FILE__, __LINE__, [this] { MtThreadPool::stop(); });
}

void MtThreadPool::doneTask(unsigned) {}

void MtThreadPool::obtainTask(unsigned) {}

void MtThreadPool::stopThreads() {}

void MtThreadPool::start()
{
    if (isRunning())
        return;
    _isRunning.store(true, ZvPlatform::Order::RELAXED);
    for (unsigned i = 0; i != _nbThreads; ++i) {
        MtThread &thread = *_threads[i];
        if (_placeThreads && thread.isProcessorPlaceable())
            thread.setProcessorNb(static_cast<int>(i));
        thread.start();
    }
}

void MtThreadPool::stop()
{
    if (!isRunning())
        return;
    _isRunning.store(false, ZvPlatform::Order::RELAXED);
    stopThreads();
    for (unsigned i = 0; i != _nbThreads; ++i)
        _threads[i]->join();
}

bool MtThreadPool::isRunning() const
{
    return _isRunning.load(ZvPlatform::Order::RELAXED);
}

} // namespace Zv
