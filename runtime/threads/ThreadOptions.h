#pragma once

#include <chrono>
#include <cstddef>

namespace mirel {

/// How `Threader` starts threads. Process-wide; takes effect for threads started afterwards.
struct ThreadOptions {
    /// Bytes of stack for each thread. At most some thousand threads of the default fit into the
    /// address space of a 32-bit process; the C library's own default (8 MiB) allows a few hundred.
    std::size_t stackSize = std::size_t{512} * 1024;

    /// Nice values between neighbouring priorities: priority 2 runs at the process's own nice
    /// value, 1 at this many more, 0 at twice as many more. 0 leaves nice values alone. Range 0
    /// to 9.
    int niceStep = 5;

    /// Threads of priority 0 and 1 take no core from a running thread at the moment they are woken;
    /// they wait until it blocks or has had its time (some milliseconds). So an executor that hands
    /// out work comes further before its workers stop it, and workers do not stop each other. This
    /// is Linux's SCHED_BATCH; a process that runs under another policy than the usual one keeps
    /// it for all its threads.
    bool workersYield = true;

    /// Runs threads under SCHED_RR instead, at this real-time priority plus the thread's priority
    /// (0 to 2). 0: off. Range 0 to 97. Needs CAP_SYS_NICE, or an RLIMIT_RTPRIO that is no
    /// lower; without it threads keep what they have, and the log says so.
    ///
    /// The owner of a `CriticalSection` then runs at the priority of the most important thread that
    /// waits for it. That needs Linux 5.14, and goes for semaphores that are made after this was
    /// set: set it before pools and executors are made.
    int realTimePriority = 0;

    /// The OS thread of an object that has ended rests for a while and runs the next object of its
    /// priority, because making one costs more than most requests. At most so many rest at a time,
    /// each with its stack. 0: none does. Up to 100000.
    int keptThreads = 512;

    /// How long one rests before it ends. Up to a day.
    std::chrono::milliseconds keptFor{10'000};

    /// How long a refused thread start is tried again before it is reported. Up to an hour. Not at
    /// all by a thread inside a `CriticalSection`: the threads whose end would make room may be
    /// waiting for that lock.
    std::chrono::milliseconds startPatience{1000};
};

/// `MirelException` for a value out of range; nothing changes then. OS threads that rest end.
void setThreadOptions(const ThreadOptions& options);
ThreadOptions threadOptions();

struct VersionedThreadOptions : ThreadOptions {
    unsigned long version = 0; ///< another one after each `setThreadOptions`
};
VersionedThreadOptions versionedThreadOptions();

} // namespace mirel
