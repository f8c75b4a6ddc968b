#include "zvbase/lgReader.h"

#include "platform/services.h"
#include "zvbase/lgLogImp.private.h"
#include "zvbase/lgQueueImp.private.h"

#include <algorithm>
#include <cstdio>

namespace Zv {

namespace {

/// Ending a line takes less than a microsecond, unless the thread loses its processor in the middle
/// of it.
constexpr int LOOKS_WITHOUT_SLEEP = 16;
/// If a thread takes longer than a second, it is probably stopped, for example in a debugger. The
/// log goes on then. A line that this thread ends may be written too late.
constexpr int LOOKS = 1000;

void waitForAnnounced(LgQueueImp const &queue)
{
    std::uint32_t const announcement = queue._ring.getAnnouncement();
    if (announcement % 2 == 0)
        return;
    for (int look = 0; look < LOOKS; ++look) {
        // A killed thread cannot end its line.
        if (queue._ring.getAnnouncement() != announcement ||
            queue._hasExited.load(ZvPlatform::Order::RELAXED))
            return;
        ::Sleep(look < LOOKS_WITHOUT_SLEEP ? 0 : 1);
    }
}

} // namespace

LgReader::LgReader() = default;

LgReader::LgReader(LgRegistry *registry, LgQueue *extra) : _registry(registry), _extra(extra) {}

LgReader::~LgReader() = default;

bool LgReader::flushEarliest()
{
    BaseGuard const guard(LgLogImp::_readingLock);
    if (LgOutput::isBusy())
        return false;
    if (_generation != LgLogImp::_generation) {
        _generation = LgLogImp::_generation;
        _queues.clear();
    }
    LgQueueImp *earliest = findEarliest();
    for (int nbLooks = 1; !earliest; ++nbLooks) {
        refresh();
        // A line that was ended after the reader has taken its stamp is due when it takes the next
        // one, unless stamps have begun anew.
        if (nbLooks > 2)
            _horizon = UINT64_MAX;
        earliest = findEarliest();
        if (!earliest && std::all_of(_queues.begin(), _queues.end(),
                                     [](LgQueue const *queue) { return queue->isEmpty(); }))
            break;
    }
    if (earliest) {
        write(*earliest);
        return true;
    }
    if (LgQueueImp * const poor = findLoss()) {
        writeLoss(*poor, _horizon, poor->_ring.getNbLostLines(), poor->_ring.getNbLostCharacters());
        return true;
    }
    reap();
    LgOutput::flush();
    return false;
}

void LgReader::flushAll()
{
    while (flushEarliest()) {
    }
}

void LgReader::refresh() ZV_NO_THREAD_SAFETY_ANALYSIS
{
    std::uint64_t const now = LgLogImp::_clock.read();
    ZvPlatform::fence(ZvPlatform::Order::SEQ_CST);
    List<LgQueue *> queues;
    {
        BaseGuard const guard(LgLogImp::_registryLock);
        queues = (_registry ? *_registry : LgLogImp::getRegistryInForce()).getQueues();
    }
    _queues.assign(queues.begin(), queues.end());
    if (_extra)
        _queues.push_back(_extra);
    // A registry may list a queue twice.
    std::sort(_queues.begin(), _queues.end());
    _queues.erase(std::unique(_queues.begin(), _queues.end()), _queues.end());
    for (LgQueue const *queue : _queues)
        waitForAnnounced(*queue->_imp);
    _horizon = now;
}

LgQueueImp *LgReader::findEarliest() const
{
    LgQueueImp *earliest = nullptr;
    std::uint64_t stamp = _horizon;
    for (LgQueue const *queue : _queues) {
        LgRing::Header const * const front = queue->_imp->_ring.getFront();
        if (front && (front->stamp < stamp || (!earliest && front->stamp == stamp))) {
            earliest = queue->_imp.get();
            stamp = front->stamp;
        }
    }
    return earliest;
}

LgQueueImp *LgReader::findLoss() const
{
    for (LgQueue const *queue : _queues) {
        if (queue->_imp->_ring.getNbLostLines() > queue->_imp->_toldLines)
            return queue->_imp.get();
    }
    return nullptr;
}

// The callers hold the reading lock, but the header cannot name it.
void LgReader::write(LgQueueImp &queue) ZV_NO_THREAD_SAFETY_ANALYSIS
{
    LgRing::Header const header = *queue._ring.getFront();
    if (header.lostLines > queue._toldLines)
        writeLoss(queue, header.stamp, header.lostLines, header.lostCharacters);
    _text.clear();
    if (header.kind == LgLine::LINE)
        LgOutput::appendMoment(_text, LgLogImp::_clock.toSeconds(header.stamp));
    queue._ring.readFront(_text);
    queue._ring.pop();
    LgOutput::write(_text.data(), _text.size());
    if (!queue._observer.isNull())
        queue._observer->notify(queue._owner);
}

void LgReader::writeLoss(LgQueueImp &queue, std::uint64_t stamp, std::uint64_t lines,
                         std::uint64_t characters) ZV_NO_THREAD_SAFETY_ANALYSIS
{
    char note[160];
    std::snprintf(
        note, sizeof note, "%llu lines (%llu characters) lost: the queue of thread %lu was full.\n",
        static_cast<unsigned long long>(lines - queue._toldLines),
        static_cast<unsigned long long>(characters - queue._toldCharacters), queue._threadId);
    queue._toldLines = lines;
    queue._toldCharacters = characters;
    _text.clear();
    LgOutput::appendMoment(_text, LgLogImp::_clock.toSeconds(stamp));
    _text += note;
    LgOutput::write(_text.data(), _text.size());
}

void LgReader::reap()
{
    LgRegistry *registry = _registry;
    if (!registry) {
        BaseGuard const guard(LgLogImp::_registryLock);
        registry = &LgLogImp::getRegistryInForce();
    }
    std::vector<LgQueue *> const queues = _queues;
    for (LgQueue *queue : queues) {
        LgQueueImp const &imp = *queue->_imp;
        bool const isOver = imp._hasExited.load(ZvPlatform::Order::ACQUIRE) &&
                            imp._ring.isEmpty() && imp._ring.getNbLostLines() == imp._toldLines;
        if (isOver) {
            registry->removeQueue(queue);
            delete queue;
        }
    }
    _queues.clear();
}

} // namespace Zv
