#pragma once

namespace mirel {

/// How often a thread looks whether a lock is free before it sleeps, at most: 0 on one core, where
/// nobody can release it meanwhile.
int mostLockSpins();

/// Tells the processor that the thread is only looking.
inline void pauseBetweenSpins() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    asm volatile("yield");
#endif
}

} // namespace mirel
