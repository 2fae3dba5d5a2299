#pragma once

#include <atomic>
#include <cstdint>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace bench {

/// A word that one thread sleeps on until another one sets it. The waits of the standard library
/// look at theirs for a while before they sleep; this one never does, so that it takes no core from
/// anybody and always measures a wake-up.
class alignas(64) FutexWord {
public:
    /// For the thread that it belongs to. Returns when the word has been set, and clears it.
    void sleep() {
        while (m_set.exchange(0) == 0)
            syscall(SYS_futex, &m_set, FUTEX_WAIT_PRIVATE, 0, nullptr);
    }

    /// For the others. True when its thread was asleep.
    bool wake() {
        m_set = 1;
        return syscall(SYS_futex, &m_set, FUTEX_WAKE_PRIVATE, 1) == 1;
    }

private:
    std::atomic<std::uint32_t> m_set{0};
};

} // namespace bench
