#include "runtime/threads/PendingWakeUps.h"

#include "runtime/threads/Futex.h"

namespace mirel {

void PendingWakeUps::wakeOne(const void* address) { futexWake(address); }

void PendingWakeUps::wake(const void* address) {
    if (m_locks > 0 && m_count < m_addresses.size())
        m_addresses[m_count++] = address;
    else
        wakeOne(address); // there is no room for it, or no reason to put it off
}

} // namespace mirel
