#include "runtime/threads/ThreadSettings.h"

#include "runtime/threads/ThreadPriority.h"

#include <cstring>
#include <pthread.h>
#include <unistd.h>

namespace mirel {

std::optional<ThreadSurroundings> ThreadSurroundings::ofThisThread() {
    std::optional<ThreadSurroundings> found(std::in_place);
    if (sched_getaffinity(0, sizeof found->processors, &found->processors) != 0)
        return std::nullopt; // more processors than the set has room for
    pthread_sigmask(SIG_SETMASK, nullptr, &found->signalMask);
    return found;
}

void ThreadSurroundings::apply() const {
    pthread_sigmask(SIG_SETMASK, &signalMask, nullptr);
    sched_setaffinity(0, sizeof processors, &processors);
}

bool ThreadSurroundings::operator==(const ThreadSurroundings& other) const {
    return CPU_EQUAL(&processors, &other.processors) != 0 &&
           std::memcmp(&signalMask, &other.signalMask, sizeof signalMask) == 0;
}

ThreadScheduling ThreadScheduling::ofThisThread() {
    ThreadScheduling found;
    found.policy = sched_getscheduler(0);
    sched_param parameters{};
    if (sched_getparam(0, &parameters) == 0)
        found.priority = parameters.sched_priority;
    found.nice = niceValueOf(gettid());
    return found;
}

} // namespace mirel
