// The end of a thread, whoever made it.
#pragma once

#include <cstdint>

namespace Zv {

/// Calls a function in each thread that asked for it when that thread ends. Not in one that is killed. Lives as long as
/// the process.
class MtThreadEndWindows
{
public:
    using Function = void (*)();

    explicit MtThreadEndWindows(Function function);
    MtThreadEndWindows(MtThreadEndWindows const &) = delete;
    MtThreadEndWindows &operator=(MtThreadEndWindows const &) = delete;

    /// Called by the thread, any number of times.
    void ask();

private:
    static void onEnd(void *self);

    std::uint32_t _flsIndex;
    Function _function;
};

} // namespace Zv
