// What a test does to its process, and the processes that it starts.
#pragma once

#include <string>
#include <vector>

namespace ZvTest {

/// Sets a variable of the environment, or takes it away where `value` is null.
void setVariable(char const *name, char const *value);

/// This program, started anew with other arguments and with the environment as it is now. What it writes, errors too,
/// is kept for the test.
class ChildProcess
{
public:
    explicit ChildProcess(std::vector<std::string> const &arguments);
    /// Waits for its end.
    ~ChildProcess();

    ChildProcess(ChildProcess const &) = delete;
    ChildProcess &operator=(ChildProcess const &) = delete;

    void kill();

    struct End
    {
        std::string output;
        int code; // 128 and the signal's number, where a signal was the end
    };
    /// Waits for its end. Once only.
    End await();

private:
    void *_process = nullptr; // Windows' handle, elsewhere the number
    void *_output = nullptr;  // Windows' handle, elsewhere the descriptor
};

inline constexpr int CODE_OF_THE_KILLED = 128 + 9;

} // namespace ZvTest
