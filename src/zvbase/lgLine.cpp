#include "zvbase/lgLine.h"

#include "zvbase/lgClock.private.h"
#include "zvbase/lgLogImp.private.h"
#include "zvbase/lgQueueImp.private.h"
#include "zvbase/lgReader.h"
#include "zvbase/platform/shared.h"
#include "zvbase/traceTags.private.h"

#include <charconv>
#include <cstring>
#include <sstream>

namespace Zv {

namespace {

constexpr char NO_TAG[] = "unknown         ";

/// A stream buffer over a fixed piece of memory. Text that does not fit is cut.
class FixedBuffer : public std::streambuf
{
public:
    FixedBuffer(char *memory, std::size_t capacity) { setp(memory, memory + capacity); }
    std::size_t getLength() const { return static_cast<std::size_t>(pptr() - pbase()); }
};

/// Asks the manager in charge for the tag of the thread, and keeps it in the thread's queue.
void renewTag(LgQueueImp &queue, unsigned generation)
{
    // Set first, because finding the tag may write a trace line itself.
    queue._tagGeneration = generation;
    queue._tagLength = sizeof NO_TAG - 1;
    std::memcpy(queue._tag, NO_TAG, queue._tagLength);

    char tag[LgQueueImp::TAG_CAPACITY];
    FixedBuffer buffer(tag, sizeof tag);
    std::ostream stream(&buffer);
    TraceTags::write(stream);
    queue._tagLength = buffer.getLength();
    std::memcpy(queue._tag, tag, queue._tagLength);
}

/// The stream of a line that goes directly to the output.
class DirectText : public LgText
{
public:
    DirectText() : LgText(nullptr, nullptr) { rdbuf(&_buffer); }
    std::string_view getText() const { return _buffer.view(); }

private:
    std::stringbuf _buffer;
};

} // namespace

LgLine::LgLine(Kind kind) : _kind(kind)
{
    if (!useQueue())
        _stream = new DirectText;
}

LgLine::~LgLine()
{
    if (_queue)
        endInQueue();
    else
        endDirectly();
}

bool LgLine::useQueue() noexcept
{
    if (!LgLog::isLoggerActive())
        return false;
    try {
        LgQueue * const queue = LgLog::getQueue();
        if (!queue)
            return false;
        if (queue->_imp->_registration.load(ZvPlatform::Order::RELAXED) !=
            LgLogImp::_registration.load(ZvPlatform::Order::RELAXED)) [[unlikely]]
            LgLog::registerQueue(queue);
        _queue = queue->_imp.get();
    } catch (...) {
        return false; // without memory for a queue the line goes directly to the output
    }
    LgStream &stream = _queue->_stream;
    _queue->_buffer.begin(_outer);
    if (_outer.exists) [[unlikely]] {
        _outer.flags = stream.flags();
        _outer.width = stream.width();
        _outer.precision = stream.precision();
        _outer.fill = stream.fill();
    }
    if (!stream.good()) [[unlikely]]
        stream.clear();
    stream.flags(std::ios_base::skipws | std::ios_base::dec);
    stream.width(0);
    stream.precision(6);
    stream.fill(' ');
    _stream = &stream;
    return true;
}

LgText &LgLine::begin(char const *file, int line)
{
    begin(file);
    char number[24] = "(";
    char * const end = std::to_chars(number + 1, number + 16, line).ptr;
    std::memcpy(end, "): ", 3);
    _stream->rdbuf()->sputn(number, end + 3 - number);
    return *_stream;
}

LgText &LgLine::begin(std::string_view place)
{
    if (!_queue) [[unlikely]] {
        TraceTags::write(*_stream);
        _stream->rdbuf()->sputn(place.data(), static_cast<std::streamsize>(place.size()));
        return *_stream;
    }
    unsigned const generation = TraceTags::getGeneration();
    if (_queue->_tagGeneration != generation) [[unlikely]]
        renewTag(*_queue, generation);
    _queue->_buffer.append(_queue->_tag, _queue->_tagLength);
    _queue->_buffer.append(place.data(), place.size());
    return *_stream;
}

void LgLine::endInQueue() noexcept
{
    bool const isServed = _queue->_buffer.end(_outer, _kind);
    if (_outer.exists) [[unlikely]] {
        _stream->flags(_outer.flags);
        _stream->width(_outer.width);
        _stream->precision(_outer.precision);
        _stream->fill(_outer.fill);
        return;
    }
    if (isServed) [[likely]]
        return;
    // The logger has stopped since this line was begun. No other reader is sure to find it.
    try {
        LgReader(nullptr, &_queue->_owner).flushAll();
    } catch (...) {
    }
}

void LgLine::endDirectly() noexcept
{
    auto * const stream = static_cast<DirectText *>(_stream);
    try {
        std::string_view const text = stream->getText();
        BaseGuard const guard(LgLogImp::_readingLock);
        if (!LgOutput::isBusy()) {
            LgReader(nullptr, nullptr).flushAll();
            std::string line;
            if (_kind == LINE)
                LgOutput::appendMoment(line, LgClock::getSeconds());
            line += text;
            if (!text.ends_with('\n'))
                line += '\n';
            LgOutput::write(line.data(), line.size());
            LgOutput::flush();
        }
    } catch (...) {
        // There is no place to report this failure.
    }
    delete stream;
}

} // namespace Zv
