// Pauses of a thread that spins (extenders).
#pragma once

namespace ZvPlatform {

/// Tells the processor that the thread spins.
inline void pauseProcessor() noexcept
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    __asm__ volatile("yield");
#else
    __atomic_signal_fence(__ATOMIC_SEQ_CST);
#endif
}

/// Lets about a microsecond pass without a system call. That can be cheaper than a sleep if another
/// thread is about to provide what the caller needs.
inline void pauseShortly() noexcept
{
    constexpr int NB_PAUSES = 64; // 40 cycles or more each, on most processors
    for (int i = 0; i < NB_PAUSES; ++i)
        pauseProcessor();
}

} // namespace ZvPlatform
