#pragma once

#include "runtime/threads/Futex.h"

#include <linux/futex.h>

namespace mirel {

/// Which thread has a lock. The owner runs at least at the real-time priority of each thread that
/// waits to become the next one.
class LockOwner {
public:
    bool isThisThread() const {
        // Only this thread makes itself the owner and ends that, or the kernel in its name. So the
        // answer is right although the word may change meanwhile.
        return (m_word.load(std::memory_order_relaxed) & FUTEX_TID_MASK) == futexThread();
    }

    /// Makes this thread the owner if there is none.
    bool tryTake() {
        std::uint32_t nobody = 0;
        return m_word.load() == 0 && m_word.compare_exchange_strong(nobody, futexThread());
    }

    /// As `futexOwn`.
    bool take(const Deadline& deadline) { return futexOwn(m_word, deadline); }

    /// By the owner. Touches nothing of the object after there is another one.
    void give() {
        std::uint32_t self = futexThread();
        if (!m_word.compare_exchange_strong(self, 0)) // others wait
            futexDisown(m_word);
    }

private:
    FutexWord m_word{0};
};

} // namespace mirel
