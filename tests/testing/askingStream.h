// Stream that needs another thread while it is written.
#pragma once

#include <functional>
#include <ostream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

namespace ZvTest {

/// Each write, and each flush, waits until another thread has run `work`. If the writing thread
/// holds a lock that `work` needs, the test hangs.
class AskingBuffer : public std::stringbuf
{
public:
    explicit AskingBuffer(std::function<void()> work) : _work(std::move(work)) {}

private:
    int_type overflow(int_type character) override
    {
        ask();
        return std::stringbuf::overflow(character);
    }
    std::streamsize xsputn(char const *text, std::streamsize length) override
    {
        ask();
        return std::stringbuf::xsputn(text, length);
    }
    int sync() override
    {
        ask();
        return 0;
    }
    void ask() const { std::thread(_work).join(); }

    std::function<void()> _work;
};

/// Returns what `write` writes to a stream that needs another thread to run `work`.
template <class Write>
std::string writtenDuring(std::function<void()> work, Write write)
{
    AskingBuffer text(std::move(work));
    std::ostream stream(&text);
    write(stream);
    return text.str();
}

} // namespace ZvTest
