#pragma once

#include "runtime/threads/ThreadOptions.h"

#include <sys/types.h>

namespace mirel {

/// Linux keeps a nice value for each thread; that of the process is its main thread's.
int niceValueOf(pid_t thread);

/// The nearest of 0 to 2.
int clampedPriority(int priority);

/// Gives the calling thread the scheduling that `options` say for a priority; one outside 0 to 2
/// counts as the nearest. What the system refuses is logged, once in the process, and the thread
/// goes on with what it has; false then. Throws what the log throws.
bool applyThreadPriority(const ThreadOptions& options, int priority);

} // namespace mirel
