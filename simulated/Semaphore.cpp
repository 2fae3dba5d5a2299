// Units are counted as they are; who takes one is the scheduler's choice, in whatever order the
// takers came.

#include "framework/Semaphore.h"

#include "framework/MirelException.h"
#include "simulated/Scheduler.h"

#include <string>

using mirel::simulated::Scheduler;
using mirel::simulated::Step;

namespace {

struct Units {
    int free;
    const int maximum;
};

bool hasUnit(const void* units) { return static_cast<const Units*>(units)->free > 0; }

} // namespace

const int Semaphore::NOT_AVAILABLE = 0;

Semaphore::Semaphore(int initial, int maximum, bool) {
    if (maximum < 1 || maximum > 65535 || initial < 0 || initial > maximum)
        throw MirelException("semaphore with " + std::to_string(initial) + " of " +
                                 std::to_string(maximum) +
                                 " units: 1 to 65535 are possible, of which 0 or more are free",
                             __FILE__, __LINE__);
    m_opaque.make<Units>(initial, maximum);
    if (Scheduler* const scheduler = Scheduler::current())
        scheduler->born(this, "Semaphore");
}

Semaphore::~Semaphore() {
    if (Scheduler* const scheduler = Scheduler::current())
        scheduler->destroyed(this);
}

bool Semaphore::take(int timeout) {
    auto& units = m_opaque.as<Units>();
    Scheduler* const scheduler = Scheduler::current();
    if (scheduler) {
        scheduler->requireAlive(this, "Semaphore::take");
        Step step{"Semaphore::take", this, mirel::simulated::Access::write, &hasUnit, &units};
        if (timeout >= 0)
            step.deadline = scheduler->now() + std::chrono::milliseconds(timeout);
        if (!scheduler->perform(step))
            return false;
    } else if (!hasUnit(&units)) {
        if (timeout >= 0)
            return false;
        throw MirelException("no unit is free, and outside of a simulated run there is nobody who "
                             "could give one",
                             __FILE__, __LINE__);
    }
    --units.free;
    return true;
}

void Semaphore::give() {
    Scheduler* const scheduler = Scheduler::current();
    if (scheduler) {
        scheduler->requireAlive(this, "Semaphore::give");
        scheduler->perform({"Semaphore::give", this});
    }
    if (auto& units = m_opaque.as<Units>(); units.free < units.maximum)
        ++units.free;
    if (scheduler) {
        scheduler->check(); // what a lock guards must be in order by now
        scheduler->perform({"after Semaphore::give", nullptr});
    }
}
