#pragma once

#include <csignal>
#include <optional>
#include <sched.h>

namespace mirel {

/// What a thread has of its own that is not its scheduling, and that a new one takes over from the
/// thread that makes it.
struct ThreadSurroundings {
    sigset_t signalMask{};
    cpu_set_t processors{};

    /// The calling thread's; none when the system does not tell.
    static std::optional<ThreadSurroundings> ofThisThread();

    /// Gives them to the calling thread.
    void apply() const;

    bool operator==(const ThreadSurroundings& other) const;
};

/// How the system shares its processors out to a thread.
struct ThreadScheduling {
    int policy = 0; ///< as `sched_getscheduler` tells it
    int priority = 0;
    int nice = 0;

    static ThreadScheduling ofThisThread();

    bool operator==(const ThreadScheduling&) const = default;
};

} // namespace mirel
