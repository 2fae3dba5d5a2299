#include "simulated/Simulation.h"

#include "framework/MirelException.h"
#include "framework/Semaphore.h"
#include "simulated/Scheduler.h"

#include <utility>

namespace mirel::simulated {

namespace {

Scheduler& scheduler() {
    if (Scheduler* const current = Scheduler::current())
        return *current;
    throw MirelException("not inside a simulated run", __FILE__, __LINE__);
}

bool holds(const void* predicate) {
    return (*static_cast<const std::function<bool()>*>(predicate))();
}

} // namespace

bool running() { return Scheduler::current() != nullptr; }

void point(const void* object, const char* what) { scheduler().perform({what, object}); }

bool waitUntil(const std::function<bool()>& ready, const char* what,
               std::optional<std::chrono::nanoseconds> timeout) {
    Step step{what, nullptr, Access::write, &holds, &ready};
    if (timeout)
        step.deadline = now() + *timeout;
    const bool isReady = scheduler().perform(step);
    scheduler().touchEverything();
    return isReady;
}

int pick(int alternatives) { return scheduler().pick(alternatives); }

void require(bool condition, const std::string& what) {
    if (condition)
        return;
    if (Scheduler* const run = Scheduler::ofRun())
        run->fail(what);
    throw MirelException(what, __FILE__, __LINE__);
}

void spawn(const std::string& name, std::function<void()> body) {
    scheduler().spawn(name, std::move(body));
}

void checkAtEachStep(std::function<void()> check) { scheduler().checkAtEachStep(std::move(check)); }

void onLog(std::function<void(const LogLine&)> sink) { scheduler().state.onLog = std::move(sink); }

void onReport(std::function<void(MirelException&)> publisher) {
    scheduler().state.onReport = std::move(publisher);
}

bool isFree(Semaphore& semaphore) {
    if (!semaphore.take(0))
        return false;
    semaphore.give();
    return true;
}

std::chrono::nanoseconds now() {
    Scheduler* const run = Scheduler::ofRun(); // in a predicate too
    return run ? run->now() : scheduler().now();
}

void sleepFor(std::chrono::nanoseconds duration) {
    waitUntil([] { return false; }, "sleep", duration);
}

} // namespace mirel::simulated
