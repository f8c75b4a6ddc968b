// Callback at the end of any thread, also of one that the library did not create.
#pragma once

#include <cstdint>

namespace Zv {

/// Calls a function at the end of each thread that asked for it, in that thread. Not called if the
/// thread is killed. The object must live as long as the process.
class MtThreadEndWindows
{
public:
    using Function = void (*)();

    explicit MtThreadEndWindows(Function function);
    MtThreadEndWindows(MtThreadEndWindows const &) = delete;
    MtThreadEndWindows &operator=(MtThreadEndWindows const &) = delete;

    /// Asks for the call at the end of the calling thread. Further calls have no effect.
    void ask();

private:
    static void onEnd(void *self);

    std::uint32_t _flsIndex;
    Function _function;
};

} // namespace Zv
