// Form of the events in the file: JSON for the viewers of traces.
#pragma once

#include "zvbase/traceRing.private.h"
#include "zvbase/traceStamps.private.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Zv {

/// Turns records into objects of the format "Chrome trace events". Each object begins with a comma
/// and a line end, so that they can follow any other object of an array.
///
/// The tracks of spans are threads of the format, with numbers that no thread has.
///
/// **Threads**: one thread at a time.
class TraceJson
{
public:
    TraceJson(std::uint32_t process, std::uint64_t firstFlow);

    /// Appends the objects of a record to `text`. Skips what has begun before this object was made.
    void append(std::string &text, TraceRecord const &record);
    /// Appends the spans that have not ended.
    void appendOpenSpans(std::string &text);
    /// Appends an instant with the number of events that were lost so far.
    void appendLoss(std::string &text, std::uint64_t nbLost);
    /// Returns the object that names the process. It comes first, and so without a comma.
    std::string getProcessName(std::string_view name) const;

    /// Returns a text in quotes. Bytes that are not UTF-8 are replaced.
    static std::string quote(std::string_view text);

private:
    struct OpenSpan
    {
        char const *category;
        char const *name;
        std::uint64_t begin;
        std::string track;
        std::string detail;
    };
    /// A row of a track. Its spans do not overlap.
    struct Row
    {
        std::uint32_t thread;
        std::uint64_t end; // of the last span
    };

    void beginObject(std::string &text, char phase, std::uint32_t thread) const;
    void appendNames(std::string &text, char const *category, std::string_view name) const;
    void appendMoment(std::string &text, char const *key, double microseconds) const;
    void appendSlice(std::string &text, TraceRecord const &record);
    void appendSpan(std::string &text, OpenSpan const &span, std::uint64_t end, bool hasEnded);
    void appendThreadName(std::string &text, std::uint32_t thread, std::string_view name) const;
    std::uint32_t findRow(std::string &text, OpenSpan const &span, std::uint64_t end);

    std::uint32_t _process;
    std::uint64_t _firstFlow;
    std::uint64_t _start;
    TraceStamps _stamps;
    std::map<std::uint64_t, OpenSpan> _openSpans;
    std::map<std::string, std::vector<Row>, std::less<>> _tracks;
    std::uint32_t _nbRows = 0;
};

} // namespace Zv
