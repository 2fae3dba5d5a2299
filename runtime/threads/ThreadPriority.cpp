#include "runtime/threads/ThreadPriority.h"

#include "framework/Logging.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>

namespace mirel {

namespace {

constexpr int kHighestPriority = 2;
constexpr int kLargestNice = 19;

/// What the calling thread runs at, such as "nice value 2".
std::string inEffect() {
    int policy = SCHED_OTHER;
    sched_param parameters{};
    pthread_getschedparam(pthread_self(), &policy, &parameters);
    if (policy == SCHED_RR || policy == SCHED_FIFO)
        return "real-time priority " + std::to_string(parameters.sched_priority);
    return "nice value " + std::to_string(niceValueOf(gettid()));
}

/// Compares what the system says now with what it was asked for, because a request can also be
/// granted in part.
bool check(const std::string& wanted, int error) {
    const std::string actual = inEffect();
    static std::atomic_flag logged;
    if (actual == wanted)
        return true;
    if (logged.test_and_set())
        return false;
    const std::string reason = error ? std::generic_category().message(error) : "not granted";
    logAppUni("Threader", __FILE__, 3, __LINE__,
              "threads cannot run at %s (%s); this one runs at %s. Logged once for all threads.",
              wanted.c_str(), reason.c_str(), actual.c_str());
    return false;
}

} // namespace

int niceValueOf(pid_t thread) { return getpriority(PRIO_PROCESS, static_cast<id_t>(thread)); }

int clampedPriority(int priority) { return std::clamp(priority, 0, kHighestPriority); }

bool applyThreadPriority(const ThreadOptions& options, int priority) {
    priority = clampedPriority(priority);
    if (options.realTimePriority > 0) {
        sched_param parameters{};
        parameters.sched_priority = options.realTimePriority + priority;
        const int error = pthread_setschedparam(pthread_self(), SCHED_RR, &parameters);
        return check("real-time priority " + std::to_string(parameters.sched_priority), error);
    }
    if (options.workersYield && sched_getscheduler(getpid()) == SCHED_OTHER) {
        // Also back to the usual policy, which a thread does not have from one that yields. Allowed
        // to everybody.
        const sched_param noPriority{};
        pthread_setschedparam(pthread_self(),
                              priority < kHighestPriority ? SCHED_BATCH : SCHED_OTHER, &noPriority);
    }
    if (options.niceStep > 0) {
        // Counted from the process's value: a thread begins with that of the thread that started
        // it, and steps on top of that would add up.
        const int nice = std::min(
            niceValueOf(getpid()) + options.niceStep * (kHighestPriority - priority), kLargestNice);
        if (niceValueOf(gettid()) == nice)
            return true;
        const int result = setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), nice);
        const int error = result == 0 ? 0 : errno;
        return check("nice value " + std::to_string(nice), error);
    }
    return true;
}

} // namespace mirel
