// Journal of a test: lines that say what has happened, in order.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace ZvTest {

using Lines = std::vector<std::string>;

/// A list of lines that any thread may add to. Thread-safe. The operations with `Text` in their
/// names join the lines, with a semicolon after each.
class Journal
{
public:
    void add(std::string line)
    {
        std::lock_guard const guard(_mutex);
        _lines.push_back(std::move(line));
        _changed.notify_all();
    }

    Lines getLines() const
    {
        std::lock_guard const guard(_mutex);
        return _lines;
    }
    std::string getText() const { return join(getLines()); }
    bool has(std::string const &line) const
    {
        std::lock_guard const guard(_mutex);
        return std::find(_lines.begin(), _lines.end(), line) != _lines.end();
    }

    /// Returns the lines since the last call, and removes them.
    Lines take()
    {
        std::lock_guard const guard(_mutex);
        return std::exchange(_lines, {});
    }
    std::string takeText() { return join(take()); }

    /// Blocks until the lines are exactly this text. If they become another one, never returns.
    void awaitText(std::string const &text) const
    {
        std::unique_lock guard(_mutex);
        _changed.wait(guard, [&] { return join(_lines) == text; });
    }

private:
    static std::string join(Lines const &lines)
    {
        std::string text;
        for (std::string const &line : lines)
            text += line + ';';
        return text;
    }

    mutable std::mutex _mutex;
    mutable std::condition_variable _changed;
    Lines _lines;
};

} // namespace ZvTest
