#pragma once

#include <atomic>
#include <cstdint>

namespace bench {

/// A word that one thread sleeps on until another one sets it. The waits of the standard library
/// look at theirs for a while before they sleep; this one never does, so that it takes no core from
/// anybody and always measures a wake-up.
class alignas(64) FutexWord {
public:
    /// For the thread that it belongs to. Returns when the word has been set, and clears it.
    void sleep();

    /// For the others. True when its thread was asleep.
    bool wake();

private:
    std::atomic<std::uint32_t> m_set{0};
};

} // namespace bench
