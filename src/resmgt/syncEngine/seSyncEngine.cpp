#include "resmgt/syncEngine/seSyncEngine.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/syncEngine/seGeneratorThread.private.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "zvbase/failures.h"

#include <cstddef>
#include <sstream>

namespace Zv {

namespace {

using Guard = LkGuard<LkLock const>;

} // namespace

ZV_DEFINE_SINGLETON(SeSyncEngine, SeSyncEngine);

SeSyncEngine::SeSyncEngine() : _lock("SeSyncEngine"), _threadFactory(MtThreadFactory::getInstance())
{}

SeSyncEngine::~SeSyncEngine() noexcept(false)
{
    stop();
}

void SeSyncEngine::addClient(LiString const &name, ObjPtr<SeClientThread> &client,
                             SeSourceProtocol &source, std::int32_t divisor)
{
    static_cast<void>(*client); // throws before a generator is made, if the client is null
    Guard const guard(_lock);
    SeGeneratorThread * const generator = getSyncGenNoLock(source);
    ZV_ASSERT(generator);
    generator->addClient(name, client, divisor, _threadFactory);
}

ObjPtrRet<SeClientThread> SeSyncEngine::removeClient(SeClientThread *client)
{
    Guard const guard(_lock);
    ObjPtr<SeClientThread> removed;
    bool foundOverall = false;
    for (MtThread * const thread : _generators) {
        auto &generator = static_cast<SeGeneratorThread &>(*thread->getProtocol());
        // A generator that is asked to remove a client asserts that it has the client.
        bool foundThisSyncGen = foundOverall && generator.hasClient(client);
        if (!foundOverall) {
            removed = generator.removeClient(client);
            foundThisSyncGen = !removed.isNull();
        }
        ZV_ASSERT(!( foundOverall == true && foundThisSyncGen == true ));
        foundOverall = foundOverall || foundThisSyncGen;
    }
    ZV_ASSERT(foundOverall);
    return removed;
}

bool SeSyncEngine::isSyncGenBeating(SeSourceProtocol &source)
{
    Guard const guard(_lock);
    return getSyncGenNoLock(source)->isState(SeGeneratorThread::BEATING);
}

void SeSyncEngine::waitSyncGenBeating(SeSourceProtocol &source)
{
    Guard const guard(_lock);
    getSyncGenNoLock(source)->waitState(SeGeneratorThread::BEATING);
}

void SeSyncEngine::stop()
{
    Guard const guard(_lock);
    for (std::size_t nb = _generators.size(); nb != 0; --nb) {
        ObjPtr<MtThread> const generator(_generators.front());
        _generators.pop_front();
    }
    ZV_ASSERT(_generators.size() == 0);
}

void SeSyncEngine::dump(std::ostream &stream) const
{
    std::ostringstream text; // the caller's stream is written without the lock
    {
        Guard const guard(_lock);
        text << "generators:\n";
        char const *separator = "";
        for (MtThread const * const generator : _generators) {
            text << separator;
            generator->dump(text);
            separator = "\n";
        }
    }
    stream << text.str();
}

SeGeneratorThread *SeSyncEngine::findSyncGenNoLock(SeSourceProtocol const &source) const
{
    for (MtThread const * const thread : _generators) {
        auto * const generator = dynamic_cast<SeGeneratorThread *>(thread->getProtocol());
        if (generator && generator->isSource(source))
            return generator;
    }
    return nullptr;
}

SeGeneratorThread *SeSyncEngine::addSyncGenNoLock(SeSourceProtocol &source)
{
    auto * const generator = new SeGeneratorThread(source);
    ObjPtr<MtThreadProtocol> protocol(generator);
    ObjPtr<MtThread> thread(_threadFactory.createThread(source.getName(), protocol, true, 0));
    List<MtThread *> added{thread.get()};
    thread->start();
    _generators.splice(_generators.end(), added);
    static_cast<void>(thread.release());
    return generator;
}

SeGeneratorThread *SeSyncEngine::getSyncGenNoLock(SeSourceProtocol &source)
{
    SeGeneratorThread * const generator = findSyncGenNoLock(source);
    return generator ? generator : addSyncGenNoLock(source);
}

std::ostream &operator<<(std::ostream &stream, SeSyncEngine const &engine)
{
    engine.dump(stream);
    return stream;
}

} // namespace Zv
