#pragma once

#include "bench/Contestant.h"

namespace bench {

/// The library itself; `threads` workers are kept.
std::unique_ptr<Contestant> startMirel(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
                                       int threads);

/// The library with inline threads.
std::unique_ptr<Contestant> startMirelInline(std::unique_ptr<CommsChannelIfc> channel,
                                             Workload& workload);

} // namespace bench
