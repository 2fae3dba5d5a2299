#pragma once

namespace mirel {

struct HostOptions;

/// How many threads the host may use, so that the system need not refuse any. Of those that it
/// lets the process start, half are for workers in use, unless `--max-workers` says how many. The
/// other half is for workers and threads at rest, for a worker that is not back yet while another
/// one goes on with its source, for the channel and the service, and for the user's other programs.
struct ThreadNumbers {
    /// Looks at the system's limits now, and logs it when they leave less than the options.
    explicit ThreadNumbers(const HostOptions& options);

    unsigned long workers;
    int maxPool;
    int keptThreads;
};

} // namespace mirel
