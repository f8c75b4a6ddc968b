// Runs code on a thread with a small stack, as the library's own threads have.
#pragma once

#include <gtest/gtest.h>

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <functional>

namespace ZvTest {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t SMALL_STACK = 512 * 1024; // the sanitizers need more
#else
constexpr std::size_t SMALL_STACK = 64 * 1024;
#endif

/// Returns the size of a small stack. The C library may refuse one of 64 KiB. On 64-bit ARM it
/// takes at least 128 KiB.
inline std::size_t getSmallStack()
{
    return std::max(SMALL_STACK, static_cast<std::size_t>(::sysconf(_SC_THREAD_STACK_MIN)));
}

/// Runs `body` on a thread with a small stack and waits for its end.
inline void runOnSmallStack(std::function<void()> body)
{
    pthread_attr_t attributes;
    ASSERT_EQ(::pthread_attr_init(&attributes), 0);
    ASSERT_EQ(::pthread_attr_setstacksize(&attributes, getSmallStack()), 0);
    pthread_t thread;
    auto const run = [](void *argument) -> void * {
        (*static_cast<std::function<void()> *>(argument))();
        return nullptr;
    };
    ASSERT_EQ(::pthread_create(&thread, &attributes, run, &body), 0);
    ::pthread_join(thread, nullptr);
    ::pthread_attr_destroy(&attributes);
}

} // namespace ZvTest
