#include "zvbase/traceJson.private.h"

#include "platform/services.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

namespace Zv {

namespace {

/// Larger than the number of any thread of the system.
constexpr std::uint32_t FIRST_ROW = 1'000'000'000;

// Bounds of the memory. What is more shares a row, or is left out.
constexpr std::size_t MAX_OPEN_SPANS = 65'536;
constexpr std::size_t MAX_TRACKS = 1024;
constexpr std::size_t MAX_ROWS = 64; // of a track
constexpr std::string_view OTHER_TRACKS = "other tracks";

template <class Number>
void appendNumber(std::string &text, Number number)
{
    char digits[32];
    text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

/// Returns the number of bytes of the UTF-8 character at the beginning of `text`, or 0 if there is
/// none.
std::size_t measureCharacter(std::string_view text)
{
    auto const byte = [&](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
    };
    auto const follow = [&](std::size_t nb) {
        for (std::size_t i = 1; i <= nb; ++i)
            if ((byte(i) & 0xC0) != 0x80)
                return false;
        return true;
    };
    unsigned const first = byte(0);
    unsigned const second = byte(1);
    if (first < 0x80)
        return 1;
    if (first >= 0xC2 && first <= 0xDF)
        return follow(1) ? 2 : 0;
    if (first >= 0xE0 && first <= 0xEF)
        return follow(2) && (first != 0xE0 || second >= 0xA0) && (first != 0xED || second < 0xA0)
                   ? 3
                   : 0;
    if (first >= 0xF0 && first <= 0xF4)
        return follow(3) && (first != 0xF0 || second >= 0x90) && (first != 0xF4 || second < 0x90)
                   ? 4
                   : 0;
    return 0;
}

} // namespace

TraceJson::TraceJson(std::uint32_t process, std::uint64_t firstFlow)
    : _process(process), _firstFlow(firstFlow), _start(ZvPlatform::readStamp())
{}

std::string TraceJson::quote(std::string_view text)
{
    std::string quoted = "\"";
    while (!text.empty()) {
        std::size_t const length = measureCharacter(text);
        char const first = text[0];
        if (length == 0) {
            quoted += "\uFFFD";
        } else if (first == '"' || first == '\\') {
            quoted += {'\\', first};
        } else if (static_cast<unsigned char>(first) < 0x20 || first == 0x7F) {
            constexpr char DIGITS[] = "0123456789abcdef";
            quoted += {'\\', 'u', '0', '0', DIGITS[first / 16], DIGITS[first % 16]};
        } else {
            quoted.append(text, 0, length);
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return quoted + '"';
}

std::string TraceJson::getProcessName(std::string_view name) const
{
    std::string text;
    beginObject(text, 'M', 0);
    text += ",\"name\":\"process_name\",\"args\":{\"name\":" + quote(name) + "}}";
    return text.substr(1); // without the comma
}

void TraceJson::append(std::string &text, TraceRecord const &record)
{
    if (record.stamp < _start)
        return;
    switch (record.kind) {
    case TraceRecord::SLICE:
    case TraceRecord::FLOW_START:
    case TraceRecord::FLOW_STEP:
    case TraceRecord::FLOW_END:
        if (record.begin >= _start)
            appendSlice(text, record);
        return;
    case TraceRecord::INSTANT:
    case TraceRecord::COUNTER: {
        bool const isCounter = record.kind == TraceRecord::COUNTER;
        beginObject(text, isCounter ? 'C' : 'i', record.thread);
        appendNames(text, record.category, record.name);
        appendMoment(text, "ts", _stamps.toMicroseconds(record.stamp));
        text += isCounter ? "" : ",\"s\":\"t\"";
        text += ",\"args\":{\"value\":";
        appendNumber(text, record.value);
        if (record.detailLength)
            text += ",\"detail\":" + quote(record.getDetail());
        text += "}}";
        return;
    }
    case TraceRecord::SPAN_BEGIN:
        if (_openSpans.size() < MAX_OPEN_SPANS)
            _openSpans.emplace(record.id, OpenSpan{record.category, record.name, record.stamp,
                                                   std::string(record.getTrack()),
                                                   std::string(record.getDetail())});
        return;
    case TraceRecord::SPAN_END:
        if (auto const span = _openSpans.find(record.id); span != _openSpans.end()) {
            appendSpan(text, span->second, record.stamp, true);
            _openSpans.erase(span);
        }
        return;
    case TraceRecord::THREAD_NAME:
        appendThreadName(text, record.thread, record.getDetail());
        return;
    }
}

void TraceJson::appendOpenSpans(std::string &text)
{
    std::uint64_t const now = ZvPlatform::readStamp();
    for (auto const &[id, span] : _openSpans)
        appendSpan(text, span, now, false);
    _openSpans.clear();
}

void TraceJson::appendLoss(std::string &text, std::uint64_t nbLost)
{
    beginObject(text, 'i', 0);
    appendNames(text, "trace", "lost events");
    appendMoment(text, "ts", _stamps.toMicroseconds(ZvPlatform::readStamp()));
    text += ",\"s\":\"p\",\"args\":{\"value\":";
    appendNumber(text, nbLost);
    text += "}}";
}

void TraceJson::beginObject(std::string &text, char phase, std::uint32_t thread) const
{
    text += ",\n{\"ph\":\"";
    text += phase;
    text += "\",\"pid\":";
    appendNumber(text, _process);
    text += ",\"tid\":";
    appendNumber(text, thread);
}

void TraceJson::appendNames(std::string &text, char const *category, std::string_view name) const
{
    text += ",\"cat\":" + quote(category) + ",\"name\":" + quote(name);
}

void TraceJson::appendMoment(std::string &text, char const *key, double microseconds) const
{
    char digits[64];
    char * const end =
        std::to_chars(digits, digits + sizeof digits, microseconds, std::chars_format::fixed, 3)
            .ptr;
    ((text += ",\"") += key) += "\":";
    text.append(digits, end);
}

void TraceJson::appendSlice(std::string &text, TraceRecord const &record)
{
    double const begin = _stamps.toMicroseconds(record.begin);
    double const end = _stamps.toMicroseconds(record.stamp);
    beginObject(text, 'X', record.thread);
    appendNames(text, record.category, record.name);
    appendMoment(text, "ts", begin);
    appendMoment(text, "dur", end - begin);
    if (record.detailLength || record.valueName) {
        text += ",\"args\":{";
        if (record.detailLength)
            text += "\"detail\":" + quote(record.getDetail());
        if (record.valueName) {
            if (record.detailLength)
                text += ',';
            text += quote(record.valueName) += ':';
            appendNumber(text, record.value);
        }
        text += '}';
    }
    text += '}';
    if (record.kind == TraceRecord::SLICE || record.id <= _firstFlow)
        return;
    // A flow belongs to the slice that encloses its moment.
    char const phase = record.kind == TraceRecord::FLOW_START  ? 's'
                       : record.kind == TraceRecord::FLOW_STEP ? 't'
                                                               : 'f';
    beginObject(text, phase, record.thread);
    appendNames(text, record.category, "flow");
    appendMoment(text, "ts", begin);
    text += ",\"id\":";
    appendNumber(text, record.id);
    text += phase == 'f' ? ",\"bp\":\"e\"}" : "}";
}

void TraceJson::appendSpan(std::string &text, OpenSpan const &span, std::uint64_t end,
                           bool hasEnded)
{
    std::uint32_t const row = findRow(text, span, end);
    double const begin = _stamps.toMicroseconds(span.begin);
    beginObject(text, 'X', row);
    appendNames(text, span.category, span.name);
    appendMoment(text, "ts", begin);
    appendMoment(text, "dur", _stamps.toMicroseconds(end) - begin);
    if (!span.detail.empty() || !hasEnded) {
        text += ",\"args\":{";
        if (!span.detail.empty())
            text += "\"detail\":" + quote(span.detail);
        if (!hasEnded)
            text += span.detail.empty() ? "\"unfinished\":true" : ",\"unfinished\":true";
        text += '}';
    }
    text += '}';
}

void TraceJson::appendThreadName(std::string &text, std::uint32_t thread,
                                 std::string_view name) const
{
    beginObject(text, 'M', thread);
    text += ",\"name\":\"thread_name\",\"args\":{\"name\":" + quote(name) + "}}";
}

/// Returns the row for a span, and appends the name of the row if it is new.
std::uint32_t TraceJson::findRow(std::string &text, OpenSpan const &span, std::uint64_t end)
{
    bool const isKnown = _tracks.size() < MAX_TRACKS || _tracks.contains(span.track);
    std::string const track = isKnown ? span.track : std::string(OTHER_TRACKS);
    std::vector<Row> &rows = _tracks[track];
    for (Row &row : rows)
        if (span.begin >= row.end) {
            row.end = end;
            return row.thread;
        }
    if (rows.size() == MAX_ROWS)
        return rows.back().thread;
    rows.push_back({FIRST_ROW + _nbRows, end});
    ++_nbRows;
    appendThreadName(text, rows.back().thread, track);
    return rows.back().thread;
}

} // namespace Zv
