#include "simulated/Exploration.h"

#include "simulated/CrashNote.h"
#include "simulated/Scheduler.h"

#include <atomic>
#include <cstdlib>
#include <ostream>
#include <stdexcept>

namespace mirel::simulated {

namespace {

using Clock = std::chrono::steady_clock;

std::unique_ptr<Strategy> makeStrategy(const ExploreOptions& options) {
    if (const char* const schedule = std::getenv("MIREL_SCHEDULE"); schedule && *schedule)
        return makeReplayStrategy(schedule);
    if (!options.schedule.empty())
        return makeReplayStrategy(options.schedule);
    if (options.search == Search::exhaustive)
        return makeExhaustiveStrategy(options.preemptions);
    if (options.runs == 0 && options.time.count() == 0)
        throw std::invalid_argument("a random search needs a limit: runs or time");
    if (options.search == Search::random)
        return makeRandomStrategy(options.seed);
    return makePctStrategy(options.seed, options.preemptions);
}

} // namespace

Exploration explore(const ExploreOptions& options, const std::function<void()>& body) {
    static std::atomic<bool> busy{false};
    if (busy.exchange(true))
        throw std::logic_error("one exploration at a time, and none inside another");
    const std::shared_ptr<void> atEnd(nullptr, [](void*) { busy = false; });
    const std::unique_ptr<Strategy> strategy = makeStrategy(options);
    const Clock::time_point begin = Clock::now();
    CrashNote crashNote;
    Exploration result;
    for (;;) {
        Scheduler scheduler(*strategy, options.stepLimit);
        crashNote.watch(&scheduler);
        const auto failure = scheduler.run(body);
        crashNote.watch(nullptr);
        ++result.runs;
        if (const std::string complaint = strategy->complaint(); !complaint.empty()) {
            result.failure = {complaint, failure ? "the run failed: " + failure->what + "\n" : "",
                              scheduleText(scheduler.choices())};
            return result;
        }
        if (failure) {
            result.failure = {failure->what, failure->positions, scheduleText(scheduler.choices())};
            return result;
        }
        result.complete = !strategy->nextRun();
        result.covered = strategy->covered();
        if (result.complete)
            return result;
        if (result.runs == options.runs ||
            (options.time.count() > 0 && Clock::now() - begin >= options.time))
            return result;
    }
}

std::string Exploration::text() const {
    std::string text = std::to_string(runs) + (runs == 1 ? " run" : " runs");
    if (covered >= 0)
        text += ", all with at most " + std::to_string(covered) + " preemptions";
    if (!failure)
        return text + ", none failed";
    text += ", the last one failed: " + failure->what + "\n" + failure->positions;
    text += "to run it again: MIREL_SCHEDULE=" + failure->schedule;
    return text;
}

std::ostream& operator<<(std::ostream& out, const Exploration& exploration) {
    return out << exploration.text();
}

} // namespace mirel::simulated
