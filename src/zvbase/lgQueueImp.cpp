#include "zvbase/lgQueueImp.private.h"

#include "zvbase/lgLog.h"

#include <algorithm>
#include <cstring>

namespace Zv {

namespace {

/// The most room that a blocked writer waits for. It is not woken for every line that the reader
/// takes.
constexpr std::uint64_t WANTED_ROOM = LgQueue::CAPACITY / 4;

} // namespace

LgQueueImp::LgQueueImp(LgQueue &owner, unsigned long threadId)
    : _owner(owner),
      _threadId(threadId),
      _ring(LgQueue::CAPACITY),
      _buffer(*this),
      _stream(*this, _buffer)
{}

LgRing &LgLineBuffer::getRing()
{
    return _queue._ring;
}

void LgLineBuffer::openChunk(std::uint64_t place)
{
    std::uint64_t const end = std::min(getRing().getSeam(place), std::max(_limit, place));
    char * const memory = getRing().at(place);
    _chunk = place;
    setp(memory, memory + (end - place));
}

void LgLineBuffer::begin(LgLine::Outer &outer)
{
    std::uint64_t const tail = getRing().getTail();
    outer.exists = _isOpen;
    std::uint64_t start = tail;
    if (_isOpen) {
        outer.isDiscarding = _isDiscarding;
        outer.isSuppressed = _isSuppressed;
        outer.discarded = _discarded;
        outer.start = _start - tail;
        outer.position = getPlace() - tail;
        start = _isDiscarding ? _start : LgRing::roundUp(getPlace());
    }
    _isOpen = true;
    _isSuppressed = _queue._nbSuppressions > 0;
    open(start);
}

void LgLineBuffer::open(std::uint64_t start)
{
    _start = start;
    _discarded = 0;
    _isDiscarding = false;
    if (_isSuppressed) {
        discard();
        return;
    }
    std::uint64_t const text = start + LgRing::UNIT;
    if (text >= _limit)
        _limit = getRing().getLimit();
    openChunk(text);
}

void LgLineBuffer::discard()
{
    std::uint64_t const text = _start + LgRing::UNIT;
    _discarded = _isSuppressed ? 0 : getPlace() - text;
    _isDiscarding = true;
    _chunk = text;
    setp(nullptr, nullptr);
}

bool LgLineBuffer::makeRoom()
{
    std::uint64_t const place = getPlace();
    if (place >= _limit) {
        _limit = getRing().getLimit();
        if (place >= _limit && !waitForRoom(place))
            return false;
    }
    openChunk(place);
    return true;
}

bool LgLineBuffer::waitForRoom(std::uint64_t place)
{
    if (!LgLog::isBlockingTrace() || !LgLog::isLoggerActive() || _queue._observer.isNull())
        return false;
    std::uint64_t const held = place - getRing().getTail();
    if (held >= getRing().getCapacity())
        return false; // the line would not fit an empty queue
    std::uint64_t const room = std::min(WANTED_ROOM, getRing().getCapacity() - held);
    getRing().setReserved(place);
    _queue._observer->wait(_queue._owner, static_cast<unsigned>(room));
    _limit = getRing().getLimit();
    return place < _limit;
}

LgLineBuffer::int_type LgLineBuffer::overflow(int_type character)
{
    if (traits_type::eq_int_type(character, traits_type::eof()))
        return traits_type::not_eof(character);
    if (!_isOpen)
        return character;
    if (!_isDiscarding && !makeRoom())
        discard();
    if (_isDiscarding) {
        ++_discarded;
        return character;
    }
    *pptr() = traits_type::to_char_type(character);
    pbump(1);
    return character;
}

std::streamsize LgLineBuffer::xsputn(char const *text, std::streamsize length)
{
    std::streamsize rest = length;
    while (rest > 0 && _isOpen) {
        if (!_isDiscarding && pptr() == epptr() && !makeRoom())
            discard();
        if (_isDiscarding) {
            _discarded += static_cast<std::uint64_t>(rest);
            break;
        }
        std::streamsize const piece = std::min<std::streamsize>(rest, epptr() - pptr());
        std::memcpy(pptr(), text, static_cast<std::size_t>(piece));
        pbump(static_cast<int>(piece));
        text += piece;
        rest -= piece;
    }
    return length;
}

bool LgLineBuffer::end(LgLine::Outer const &outer, LgLine::Kind kind)
{
    _kind = kind;
    std::uint64_t const text = _start + LgRing::UNIT;
    bool const isClosed =
        !_isDiscarding && getPlace() > text && *getRing().at(getPlace() - 1) == '\n';
    if (!_isDiscarding && !isClosed)
        sputc('\n');

    bool isServed = true;
    if (!_isDiscarding) {
        isServed = publish(_start);
    } else if (!_isSuppressed) {
        getRing().countLoss(_discarded);
        getRing().setReserved(getRing().getTail() + LgRing::UNIT);
        isServed = LgLog::isLoggerActive();
    }
    resume(outer);
    return isServed;
}

bool LgLineBuffer::publish(std::uint64_t start)
{
    std::uint64_t const tail = getRing().getTail();
    std::uint64_t const end = getPlace();
    // Lines that are still open are in front of this one. They continue behind it.
    if (start != tail)
        getRing().rotate(tail, start, LgRing::roundUp(end));
    return getRing().publish(tail + (end - start), _kind);
}

void LgLineBuffer::resume(LgLine::Outer const &outer)
{
    _isOpen = outer.exists;
    if (!outer.exists) {
        setp(nullptr, nullptr);
        return;
    }
    std::uint64_t const tail = getRing().getTail();
    _start = tail + outer.start;
    _discarded = outer.discarded;
    _isDiscarding = outer.isDiscarding;
    _isSuppressed = outer.isSuppressed;
    _limit = getRing().getLimit();
    if (_isDiscarding) {
        _chunk = tail + outer.position;
        setp(nullptr, nullptr);
    } else {
        openChunk(tail + outer.position);
    }
}

} // namespace Zv
