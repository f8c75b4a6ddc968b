// Thread that passes the baton to other threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <pthread.h>
#include <sys/types.h>

namespace ZvPlatform::Simulated {

/// A simulated thread, as far as it gets the baton and passes it on.
///
/// Each simulated thread is created as a real thread, so that it has a stack, thread-local values
/// and an identity of its own. On x86-64, one real thread then runs the code of all of them: it
/// continues on the stack and with the thread-local values of the thread that gets the baton. No
/// system call is needed, so this takes a tenth of the time. The other real threads sleep.
///
/// Such threads can be prepared before a process is forked. In the new process they have no real
/// thread, and need none.
///
/// Elsewhere, and under the thread sanitizer, which must know which thread runs, each real thread
/// runs its own code, and sleeps while it does not have the baton.
class Bearer
{
public:
    using Function = void (*)(void *argument);

    constexpr Bearer() = default;
    Bearer(Bearer const &) = delete;
    Bearer &operator=(Bearer const &) = delete;

    /// Returns whether one real thread runs the code of all threads.
    static bool isOnlyOneReal();
    /// Creates `count` threads, with stacks of `stackSize` bytes, that `create` takes. Has no
    /// effect if each real thread runs its own code.
    static void prepare(unsigned count, std::size_t stackSize);
    /// Forks the process. In the new one, the prepared threads can be taken, and the calling thread
    /// is the only one that exists.
    static pid_t fork();

    /// Creates a thread that calls the function when it gets the baton for the first time. If the
    /// function returns, it must have passed the baton on as one that is ending. Returns null if
    /// the thread cannot be created.
    static Bearer *create(std::size_t stackSize, Function function, void *argument);
    /// Returns the calling thread.
    static Bearer &current();
    std::size_t getStackSize() const { return _stackSize; }
    /// Destroys the thread-local values of the calling thread. Called by a thread that `create`
    /// created, when it ends.
    static void destroyValues();

    /// Passes the baton to `to`. Returns when the calling thread gets it again. A thread that
    /// `isEnding` never gets it again.
    void passTo(Bearer &to, bool isEnding);
    /// Waits for the end of the real thread. The thread has passed the baton on because it ends.
    void join();

private:
    static Bearer *createReal(std::size_t stackSize);
    static void *begin(void *);
    void sleep(std::uint32_t &hasArrived);
    void release();

    std::uint32_t _word = 0; ///< on which the real thread sleeps
    void *_stack = nullptr;  ///< top of the stack, while another thread has the baton
    void *_values = nullptr; ///< thread pointer, which leads to the thread-local values
    pthread_t _thread = 0;
    bool _isPrepared = false;
    std::size_t _stackSize = 0;
    Bearer *_next = nullptr; ///< in the list of prepared threads
    Function _function = nullptr;
    void *_argument = nullptr;
};

} // namespace ZvPlatform::Simulated
