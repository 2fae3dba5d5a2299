#pragma once

#include "bench/Placement.h"

#include <chrono>
#include <cstddef>
#include <vector>

namespace bench {

/// What threads reach that do nothing but wake each other: the limit for every way of handing
/// something to another thread.
struct FutexHandOvers {
    /// From before the call that wakes to the first step of the woken thread. Of the hand-overs that
    /// found the other thread asleep; one that is still on its way to sleep needs no waking.
    std::vector<std::chrono::nanoseconds> durations;

    std::size_t tried = 0;
};

/// Each thread sleeps on a word of its own. The one that runs wakes the next, the last the first,
/// and goes to sleep at once, as a thread that reads does after the only request. `rounds` times
/// round; at least two threads, of which the first is placed as a reader and the others as handlers.
FutexHandOvers handOver(std::size_t threads, std::size_t rounds, Placement placement);

} // namespace bench
