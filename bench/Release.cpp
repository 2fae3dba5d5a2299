#include "bench/Release.h"

namespace bench {

void Release::add(std::size_t messages) {
    m_released += messages;
    m_released.notify_all();
}

void Release::close() {
    m_closed = true;
    add(1); // so that a reader who waits, or is about to, wakes up
}

bool Release::waitFor(std::size_t number) const {
    if (number == m_released) // most often not, and the wait takes longer to find that out
        m_released.wait(number);
    return !m_closed;
}

} // namespace bench
