// Units are counted as they are; who takes one is the scheduler's choice, in whatever order the
// takers came.

#include "framework/Semaphore.h"

#include "framework/MirelException.h"
#include "simulated/Scheduler.h"

#include <string>

using mirel::simulated::Scheduler;
using mirel::simulated::Step;

namespace {

// Relaxed, because everything is on one OS thread.
constexpr auto kRelaxed = std::memory_order_relaxed;

bool hasUnit(const void* state) {
    return static_cast<const std::atomic<std::uint32_t>*>(state)->load(kRelaxed) > 0;
}

} // namespace

const int Semaphore::NOT_AVAILABLE = 0;

Semaphore::Semaphore(int initial, int maximum, bool)
    : m_state(static_cast<std::uint32_t>(initial)),
      m_maximum(static_cast<std::uint32_t>(maximum)) {
    if (maximum < 1 || maximum > 65535 || initial < 0 || initial > maximum)
        throw MirelException("semaphore with " + std::to_string(initial) + " of " +
                                 std::to_string(maximum) +
                                 " units: 1 to 65535 are possible, of which 0 or more are free",
                             __FILE__, __LINE__);
    if (Scheduler* const scheduler = Scheduler::current())
        scheduler->born(this, "Semaphore");
}

Semaphore::~Semaphore() {
    if (Scheduler* const scheduler = Scheduler::current())
        scheduler->destroyed(this);
}

bool Semaphore::take(int timeout) {
    Scheduler* const scheduler = Scheduler::current();
    if (scheduler) {
        scheduler->requireAlive(this, "Semaphore::take");
        Step step{"Semaphore::take", this, mirel::simulated::Access::write, &hasUnit, &m_state};
        if (timeout >= 0)
            step.deadline = scheduler->now() + std::chrono::milliseconds(timeout);
        if (!scheduler->perform(step))
            return false;
    } else if (!hasUnit(&m_state)) {
        if (timeout >= 0)
            return false;
        throw MirelException("no unit is free, and outside of a simulated run there is nobody who "
                             "could give one",
                             __FILE__, __LINE__);
    }
    m_state.fetch_sub(1, kRelaxed);
    return true;
}

void Semaphore::give() {
    Scheduler* const scheduler = Scheduler::current();
    if (scheduler) {
        scheduler->requireAlive(this, "Semaphore::give");
        scheduler->perform({"Semaphore::give", this});
    }
    if (m_state.load(kRelaxed) < m_maximum)
        m_state.fetch_add(1, kRelaxed);
    if (scheduler) {
        scheduler->check(); // what a lock guards must be in order by now
        scheduler->perform({"after Semaphore::give", nullptr});
    }
}
