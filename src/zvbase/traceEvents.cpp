#include "zvbase/traceEvents.h"

#include "platform/services.h"
#include "zvbase/traceRing.private.h"

#include <algorithm>

namespace Zv {

using ZvPlatform::Shared;

constinit bool TraceEvents::_isOn = false;
constinit Shared<unsigned> TraceEvents::_session{0};
constinit Shared<TraceRing *> TraceEvents::_ring{nullptr};
constinit Shared<std::int64_t> TraceEvents::_waitLimit{0};

namespace {

/// What the calling thread is called.
struct ThreadName
{
    char text[31];
    std::uint8_t length;
    unsigned session; // in which it was told last
    std::uint32_t number;
};

thread_local constinit ThreadName threadName = {};
constinit Shared<std::uint32_t> nbThreads{0};

/// Returns a number that no other thread of the process has had. The system uses its numbers again.
std::uint32_t getThreadNumber()
{
    if (threadName.number == 0)
        threadName.number = nbThreads.fetch_add(1, ZvPlatform::Order::RELAXED) + 1;
    return threadName.number;
}

/// A record that the calling thread writes. The destructor publishes it.
class Writing
{
public:
    Writing(TraceRing *ring, TraceRecord::Kind kind) noexcept : _ring(ring)
    {
        if (!ring)
            return;
        _record = ring->claim(_position);
        if (!_record)
            return;
        _record->kind = kind;
        _record->thread = getThreadNumber();
        _record->stamp = ZvPlatform::readStamp();
        _record->id = 0;
        _record->valueName = nullptr;
        _record->trackLength = _record->detailLength = 0;
    }
    ~Writing()
    {
        if (_record)
            _ring->publish(*_record, _position);
    }
    Writing(Writing const &) = delete;
    Writing &operator=(Writing const &) = delete;

    explicit operator bool() const noexcept { return _record; }
    TraceRecord *operator->() const noexcept { return _record; }
    /// Returns a number that no other record of the process has. It is never 0.
    std::uint64_t getId() const noexcept { return _position + 1; }

    void name(char const *category, char const *text) const noexcept
    {
        _record->category = category;
        _record->name = text;
    }

private:
    TraceRing *_ring;
    TraceRecord *_record = nullptr;
    std::uint64_t _position = 0;
};

/// Tells the reader the name of the calling thread, with the first event of each session.
void tellThreadName(TraceRing *ring, unsigned session) noexcept
{
    if (threadName.session == session) [[likely]]
        return;
    if (threadName.length != 0) {
        Writing const record(ring, TraceRecord::THREAD_NAME);
        if (!record)
            return; // with the next event
        record->setText({}, {threadName.text, threadName.length});
    }
    threadName.session = session;
}

TraceRing *prepare(Shared<TraceRing *> const &ring, Shared<unsigned> const &session) noexcept
{
    TraceRing * const known = ring.load(ZvPlatform::Order::ACQUIRE);
    if (known)
        tellThreadName(known, session.load(ZvPlatform::Order::RELAXED));
    return known;
}

} // namespace

void TraceEvents::nameThread(std::string_view name) noexcept
{
    name = name.substr(0, sizeof threadName.text);
    std::copy(name.begin(), name.end(), threadName.text);
    threadName.length = static_cast<std::uint8_t>(name.size());
    threadName.session = 0;
}

void TraceEvents::writeInstant(char const *category, char const *name, std::string_view detail,
                               std::int64_t value) noexcept
{
    if (Writing const record(prepare(_ring, _session), TraceRecord::INSTANT); record) {
        record.name(category, name);
        record->value = value;
        record->valueName = "value";
        record->setText({}, detail);
    }
}

void TraceEvents::writeCounter(char const *category, char const *name, std::int64_t value) noexcept
{
    if (Writing const record(prepare(_ring, _session), TraceRecord::COUNTER); record) {
        record.name(category, name);
        record->value = value;
        record->valueName = "value";
    }
}

std::uint64_t TraceEvents::beginSpan(char const *category, char const *name, std::string_view track,
                                     std::string_view detail) noexcept
{
    Writing const record(prepare(_ring, _session), TraceRecord::SPAN_BEGIN);
    if (!record)
        return 0;
    record.name(category, name);
    record->id = record.getId();
    record->setText(track, detail);
    return record.getId();
}

void TraceEvents::endSpan(std::uint64_t id) noexcept
{
    if (Writing const record(prepare(_ring, _session), TraceRecord::SPAN_END); record)
        record->id = id;
}

std::uint64_t TraceEvents::readStamp() noexcept
{
    return std::max<std::uint64_t>(ZvPlatform::readStamp(), 1);
}

std::int64_t TraceEvents::readClock() noexcept
{
    LARGE_INTEGER now;
    ::QueryPerformanceCounter(&now);
    return now.QuadPart;
}

void TraceEvents::Slice::begin(char const *category, char const *name,
                               std::string_view detail) noexcept
{
    _category = category;
    _name = name;
    _detail = detail;
    _flow = 0;
    _kind = TraceRecord::SLICE;
    _valueName = nullptr;
    _value = 0;
    _begin = readStamp();
}

void TraceEvents::Slice::write() noexcept
{
    if (!isOn())
        return;
    Writing const record(prepare(_ring, _session), static_cast<TraceRecord::Kind>(_kind));
    if (!record)
        return;
    record.name(_category, _name);
    record->begin = _begin;
    record->id = _flow;
    record->value = _value;
    record->valueName = _valueName;
    record->setText({}, _detail);
}

void TraceEvents::LockWait::dropIfShort() noexcept
{
    if (readClock() - _since < _waitLimit.load(ZvPlatform::Order::RELAXED))
        _slice._begin = 0;
}

void TraceSpan::finish() noexcept
{
    if (TraceEvents::isOn())
        TraceEvents::endSpan(_id);
    _id = 0;
}

void TraceFlow::start(TraceEvents::Slice &slice) noexcept
{
    TraceRing * const ring = TraceEvents::_ring.load(ZvPlatform::Order::ACQUIRE);
    if (!ring)
        return;
    _id = ring->makeFlow();
    _category = slice._category;
    slice._flow = _id;
    slice._kind = TraceRecord::FLOW_START;
}

void TraceFlow::pass(TraceEvents::Slice &slice) const noexcept
{
    slice._flow = _id;
    slice._kind = TraceRecord::FLOW_STEP;
}

void TraceFlow::finish() noexcept
{
    TraceEvents::Slice slice(_category, "completed");
    slice._flow = _id;
    slice._kind = TraceRecord::FLOW_END;
    _id = 0;
}

} // namespace Zv
