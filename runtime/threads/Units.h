#pragma once

#include "runtime/threads/Futex.h"
#include "runtime/threads/LockOwner.h"
#include "runtime/threads/PendingWakeUps.h"

#include <cstdint>

namespace mirel {

/// What a `Semaphore` consists of: its units, and for a lock of real-time threads its owner.
///
/// The owner is there so that the kernel knows whose priority it has to raise; while a section has
/// one, nobody else takes a unit, also if somebody else gives one. A thread that begins a section
/// becomes the owner before it takes the unit, and gives up the ownership after it has given the
/// unit back; so who waits for a section waits for its owner. Any other taker is the owner while it
/// takes the unit. So whoever has got the unit, and may destroy the semaphore now, got it when the
/// last section was quite over.
class Units {
public:
    Units(int initial, int maximum);

    /// As the semaphore's functions.
    bool take(int timeout) { return (!m_hasOwner && tryTake()) || takeSlowly(timeout); }
    void give() {
        if (m_hasOwner)
            giveAsOwner();
        else
            giveUnit();
    }

    /// To be called by a thread right before it takes the unit for a section. The section ends with
    /// the thread's next `give`.
    void beginSection() {
        if (m_hasOwner)
            becomeOwner(-1, std::nullopt);
    }

private:
    static constexpr std::uint32_t kUnit = 1;
    static constexpr std::uint32_t kUnits = 0xffff;
    static constexpr std::uint32_t kSleepers = 0x10000;

    bool tryTake();
    void giveUnit();

    bool takeSlowly(int timeout);
    bool waitForUnit(int timeout, const Deadline& deadline);
    void giveAsOwner();
    bool becomeOwner(int timeout, const Deadline& deadline);
    template <typename Attempt>
    bool spin(Attempt attempt);

    /// Free units in the low half; above them a mark that threads may sleep, so that one atomic
    /// step changes and reads both. Who gives a unit takes the mark away and wakes one sleeper;
    /// that one puts the mark back, because there may be others. So the units given until it has
    /// got a core cost nobody another call of the system.
    FutexWord m_state;

    LockOwner m_owner;

    /// How often a taker has had to look until the lock was free, on average.
    std::atomic<int> m_usualSpins{0};

    const std::uint16_t m_maximum;

    /// Made with its only unit free: who waits, waits for a short time.
    const bool m_isLock;

    /// A lock that was made while threads were to have real-time priorities.
    const bool m_hasOwner;
};

inline bool Units::tryTake() {
    std::uint32_t state = m_state.load(std::memory_order_relaxed);
    while ((state & kUnits) != 0)
        if (m_state.compare_exchange_weak(state, state - kUnit, std::memory_order_acquire,
                                          std::memory_order_relaxed))
            return true;
    return false;
}

inline void Units::giveUnit() {
    const std::uint32_t maximum = m_maximum;
    std::uint32_t state = m_state.load(std::memory_order_relaxed);
    std::uint32_t next = 0;
    // Written back also when it is full: who takes next shall see what was done before this call.
    // More than a release, for what `takeSlowly` says of one order.
    do {
        next = (state & kUnits) == maximum ? state : (state & kUnits) + kUnit;
    } while (!m_state.compare_exchange_weak(state, next, std::memory_order_seq_cst,
                                            std::memory_order_relaxed));
    // From here on the object may be gone, because a taker that did not have to wait may have taken
    // the unit and destroyed it. The kernel looks the address up in its list of sleepers and does
    // not touch the memory. If something else lives there by now and sleeps on that address, it is
    // woken without a reason, which every user of a futex has to expect anyway.
    if (next != state && (state & kSleepers) != 0)
        PendingWakeUps::ofThisThread().wake(&m_state);
}

} // namespace mirel
