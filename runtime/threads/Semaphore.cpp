#include "framework/Semaphore.h"

#include "framework/MirelException.h"
#include "runtime/threads/LockSpin.h"
#include "runtime/threads/PendingWakeUps.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <linux/futex.h>
#include <optional>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock; // CLOCK_MONOTONIC, which the kernel's deadlines refer to

constexpr std::uint32_t kUnit = 1;
constexpr std::uint32_t kUnits = 0xffff;
constexpr std::uint32_t kSleepers = 0x10000;

/// The layout that SYS_futex reads: two machine words. A C library with a 64-bit time_t on a 32-bit
/// system has another one for its own timespec.
struct KernelTime {
    long seconds;
    long nanoseconds;
};

KernelTime kernelTime(Clock::time_point time) {
    const auto sinceBoot = time.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceBoot);
    const std::chrono::nanoseconds rest = sinceBoot - seconds;
    return {static_cast<long>(seconds.count()), static_cast<long>(rest.count())};
}

/// Sleeps unless the word has changed. False when the deadline has passed. May return early.
bool sleepWhile(std::atomic<std::uint32_t>& word, std::uint32_t value,
                const std::optional<Clock::time_point>& deadline) {
    KernelTime time{};
    if (deadline)
        time = kernelTime(*deadline);
    const long result = syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, value,
                                deadline ? &time : nullptr, nullptr, FUTEX_BITSET_MATCH_ANY);
    return result == 0 || errno != ETIMEDOUT;
}

/// What a `Semaphore` consists of.
class Units {
public:
    Units(int initial, int maximum)
        : m_state(static_cast<std::uint32_t>(initial)),
          m_maximum(static_cast<std::uint32_t>(maximum)),
          m_isLock(initial == 1 && maximum == 1) {}

    bool take(int timeout);
    void give();

private:
    bool tryTake();
    bool spin();

    /// Free units in the low half; above them a mark that threads may sleep, so that one atomic
    /// step changes and reads both. Who gives a unit takes the mark away and wakes one sleeper;
    /// that one puts the mark back, because there may be others. So the units given until it has
    /// got a core cost nobody another call of the system.
    std::atomic<std::uint32_t> m_state;
    static_assert(sizeof m_state == 4 && std::atomic<std::uint32_t>::is_always_lock_free,
                  "the kernel compares the word itself");
    const std::uint32_t m_maximum;

    /// Made with its only unit free: who waits, waits for a short time.
    const bool m_isLock;

    /// How often a taker has had to look until the lock was free, on average.
    std::atomic<int> m_usualSpins{0};
};

bool Units::tryTake() {
    std::uint32_t state = m_state.load(std::memory_order_relaxed);
    while ((state & kUnits) != 0)
        if (m_state.compare_exchange_weak(state, state - kUnit, std::memory_order_acquire,
                                          std::memory_order_relaxed))
            return true;
    return false;
}

/// Looks for about twice as long as it took on average, so that a lock that is held for long, or by
/// a thread that has lost its core, is soon not waited for in this way.
bool Units::spin() {
    const int usual = m_usualSpins.load(std::memory_order_relaxed);
    const int most = std::min(mirel::mostLockSpins(), 2 * usual + 10);
    int spins = 0;
    bool taken = false;
    while (!taken && spins < most) {
        mirel::pauseBetweenSpins();
        ++spins;
        taken = tryTake();
    }
    // Not exact when several threads spin: it is only an estimate.
    m_usualSpins.store(usual + ((taken ? spins : 0) - usual) / 8, std::memory_order_relaxed);
    return taken;
}

bool Units::take(int timeout) {
    if (tryTake())
        return true;
    if (timeout != 0 && m_isLock && spin())
        return true;
    // Also if it only asks: it may ask again and again.
    mirel::PendingWakeUps::ofThisThread().issue();
    if (timeout == 0)
        return false;

    std::optional<Clock::time_point> deadline;
    if (timeout > 0)
        deadline = Clock::now() + std::chrono::milliseconds(timeout);
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
                mirel::PendingWakeUps::ofThisThread().wake(&m_state);
            return true;
        }
        // Nobody has woken this thread when its time is over, so it owes nobody the mark.
        if (!timeIsLeft)
            return false;
        if (!m_state.compare_exchange_weak(state, state | kSleepers, std::memory_order_relaxed))
            continue;
        timeIsLeft = sleepWhile(m_state, state | kSleepers, deadline);
        othersMaySleep = kSleepers;
        state = m_state.load(std::memory_order_relaxed);
    }
}

void Units::give() {
    const std::uint32_t maximum = m_maximum;
    std::uint32_t state = m_state.load(std::memory_order_relaxed);
    std::uint32_t next = 0;
    // Written back also when it is full: who takes next shall see what was done before this call.
    do {
        next = (state & kUnits) == maximum ? state : (state & kUnits) + kUnit;
    } while (!m_state.compare_exchange_weak(state, next, std::memory_order_release,
                                            std::memory_order_relaxed));
    // From here on the object may be gone, because a taker that did not have to wait may have taken
    // the unit and destroyed it. The kernel looks the address up in its list of sleepers and does
    // not touch the memory. If something else lives there by now and sleeps on that address, it is
    // woken without a reason, which every user of a futex has to expect anyway.
    if (next != state && (state & kSleepers) != 0)
        mirel::PendingWakeUps::ofThisThread().wake(&m_state);
}

} // namespace

const int Semaphore::NOT_AVAILABLE = 0;

Semaphore::Semaphore(int initial, int maximum, bool) {
    if (maximum < 1 || maximum > 65535 || initial < 0 || initial > maximum)
        throw MirelException("semaphore with " + std::to_string(initial) + " of " +
                                 std::to_string(maximum) +
                                 " units: 1 to 65535 are possible, of which 0 or more are free",
                             __FILE__, __LINE__);
    m_opaque.make<Units>(initial, maximum);
}

Semaphore::~Semaphore() { m_opaque.destroy<Units>(); }

bool Semaphore::take(int timeout) { return m_opaque.as<Units>().take(timeout); }
void Semaphore::give() { m_opaque.as<Units>().give(); }
