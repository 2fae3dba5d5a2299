#include "runtime/threads/Units.h"

#include "runtime/threads/LockSpin.h"
#include "runtime/threads/ThreadOptions.h"

#include <algorithm>

namespace mirel {

namespace {

Deadline deadlineOf(int timeout) {
    if (timeout <= 0)
        return std::nullopt;
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout);
}

} // namespace

Units::Units(int initial, int maximum)
    : m_state(static_cast<std::uint32_t>(initial)),
      m_maximum(static_cast<std::uint16_t>(maximum)),
      m_isLock(initial == 1 && maximum == 1),
      m_hasOwner(m_isLock && threadOptions().realTimePriority > 0 && futexHasOwners()) {}

bool Units::takeSlowly(int timeout) {
    const Deadline deadline = deadlineOf(timeout);
    if (!m_hasOwner)
        return waitForUnit(timeout, deadline);
    if (m_owner.isThisThread()) // in a section, or going to be
        return tryTake() || waitForUnit(timeout, deadline);
    bool taken = false;
    do {
        if (!becomeOwner(timeout, deadline))
            return false;
        taken = tryTake() || waitForUnit(timeout, deadline);
        if (m_owner.isThisThread())
            m_owner.give();
        // A unit that was given meanwhile would be left over: others found an owner here, and took
        // it for the one who takes the unit. That works because all these steps have one order.
    } while (!taken && (m_state.load() & kUnits) != 0);
    return taken;
}

/// Looks for about twice as long as it took on average, so that a lock that is held for long, or by
/// a thread that has lost its core, is soon not waited for in this way.
template <typename Attempt>
bool Units::spin(Attempt attempt) {
    const int usual = m_usualSpins.load(std::memory_order_relaxed);
    const int most = std::min(mostLockSpins(), 2 * usual + 10);
    int spins = 0;
    bool taken = false;
    while (!taken && spins < most) {
        pauseBetweenSpins();
        ++spins;
        taken = attempt();
    }
    // Not exact when several threads spin: it is only an estimate.
    m_usualSpins.store(usual + ((taken ? spins : 0) - usual) / 8, std::memory_order_relaxed);
    return taken;
}

bool Units::waitForUnit(int timeout, const Deadline& deadline) {
    if (timeout != 0 && m_isLock && spin([this] { return tryTake(); }))
        return true;
    // Also if it only asks: it may ask again and again.
    PendingWakeUps::ofThisThread().issue();
    if (timeout == 0)
        return false;

    bool timeIsLeft = true;
    std::uint32_t othersMaySleep = 0; // the mark is gone when this thread has been woken
    std::uint32_t state = m_state.load(std::memory_order_relaxed);
    for (;;) {
        if ((state & kUnits) != 0) {
            const std::uint32_t next = (state - kUnit) | othersMaySleep;
            if (!m_state.compare_exchange_weak(state, next, std::memory_order_acquire,
                                               std::memory_order_relaxed))
                continue;
            // Given while the mark was gone, so that nobody was woken for it.
            if (othersMaySleep && (next & kUnits) != 0)
                PendingWakeUps::ofThisThread().wake(&m_state);
            return true;
        }
        // Nobody has woken this thread when its time is over, so it owes nobody the mark.
        if (!timeIsLeft)
            return false;
        if (!m_state.compare_exchange_weak(state, state | kSleepers, std::memory_order_relaxed))
            continue;
        timeIsLeft = futexWait(m_state, state | kSleepers, deadline);
        othersMaySleep = kSleepers;
        state = m_state.load(std::memory_order_relaxed);
    }
}

/// False when the deadline has passed. True, but not the owner, if the kernel refuses: then it is
/// the unit that the thread waits for, and nobody's priority is raised.
bool Units::becomeOwner(int timeout, const Deadline& deadline) {
    if (m_owner.tryTake())
        return true;
    if (timeout != 0 && spin([this] { return m_owner.tryTake(); }))
        return true;
    PendingWakeUps::ofThisThread().issue();
    return timeout != 0 && m_owner.take(deadline);
}

void Units::giveAsOwner() {
    const bool endsSection = m_owner.isThisThread();
    giveUnit();
    // Still there in a section: who takes the unit has to become the owner first.
    if (endsSection)
        m_owner.give();
}

} // namespace mirel
