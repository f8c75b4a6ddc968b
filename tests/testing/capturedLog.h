// Captures the output of the log.
#pragma once

#include "testing/journal.h"
#include "zvbase/lgTrace.h"

#include <cstddef>
#include <string>

namespace ZvTest {

/// Returns the lines that contain `text`, each from that text on and without its end of line.
inline Lines linesFrom(std::string const &text, Lines const &lines)
{
    Lines found;
    for (std::string const &line : lines)
        if (auto const start = line.find(text); start != std::string::npos)
            found.push_back(line.substr(start, line.find('\n', start) - start));
    return found;
}

/// Captures the lines of the log during its lifetime. If a logger runs, call `LgLog::flush` before
/// you read them.
class CapturedLog
{
public:
    CapturedLog() { Zv::LgTrace::setOutput(write, this); }
    ~CapturedLog() { Zv::LgTrace::setOutput(nullptr, nullptr); }
    CapturedLog(CapturedLog const &) = delete;
    CapturedLog &operator=(CapturedLog const &) = delete;

    Lines getLines() const { return _journal.getLines(); }
    /// Returns all lines as one text.
    std::string getText() const
    {
        std::string text;
        for (std::string const &line : getLines())
            text += line;
        return text;
    }
    /// Returns the lines since the last call, and removes them.
    Lines take() { return _journal.take(); }
    /// Returns the lines without their moment, tag and place.
    Lines getTexts() const
    {
        Lines texts;
        for (std::string const &line : getLines())
            texts.push_back(line.substr(line.find("): ") + 3));
        return texts;
    }

private:
    static void write(void *context, char const *text, std::size_t length)
    {
        static_cast<CapturedLog *>(context)->_journal.add(std::string(text, length));
    }

    Journal _journal;
};

} // namespace ZvTest
