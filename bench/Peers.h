#pragma once

#include "bench/Contestant.h"

namespace bench {

// What a user would take instead. Each finds the queue of a source by its name.

/// Boost.Asio: a `thread_pool` and a strand for each source.
std::unique_ptr<Contestant> startAsio(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
                                      int threads);

/// oneTBB: an arena of that many threads and a serial `function_node` for each source.
std::unique_ptr<Contestant> startTbb(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
                                     int threads);

/// CAF: an actor for each source, under the work-stealing scheduler.
std::unique_ptr<Contestant> startCaf(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
                                     int threads);

/// What one writes in an afternoon: one mutex, one condition variable, a queue for each source.
std::unique_ptr<Contestant> startStudentPool(std::unique_ptr<CommsChannelIfc> channel,
                                             Workload& workload, int threads);

} // namespace bench
