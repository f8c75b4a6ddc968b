// Child processes and environment variables for tests.
#pragma once

#include <string>
#include <vector>

namespace ZvTest {

/// Sets a variable of the environment, or removes it if `value` is null.
void setVariable(char const *name, char const *value);

/// Starts this program again, with other arguments and with the current environment. Its output and
/// errors are kept for the test.
class ChildProcess
{
public:
    explicit ChildProcess(std::vector<std::string> const &arguments);
    /// Waits for the end of the process.
    ~ChildProcess();

    ChildProcess(ChildProcess const &) = delete;
    ChildProcess &operator=(ChildProcess const &) = delete;

    void kill();

    struct End
    {
        std::string output;
        int code; // 128 plus the number of the signal if a signal ended it
    };
    /// Waits for the end of the process. May be called once.
    End await();

private:
    void *_process = nullptr; // Windows' handle, elsewhere the number
    void *_output = nullptr;  // Windows' handle, elsewhere the descriptor
};

inline constexpr int CODE_OF_THE_KILLED = 128 + 9;

} // namespace ZvTest
