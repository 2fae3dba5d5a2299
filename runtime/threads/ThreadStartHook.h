#pragma once

#include <functional>

namespace mirel {

/// A seam for the tests of programs: makes thread starts fail as a system short of threads would.
/// `Threader` calls the hook each time before it takes a kept thread or asks the system for one,
/// on the thread that calls `createThread`. The hook returns an errno value that is then taken for
/// the system's answer (EAGAIN is tried again, anything else is final), or 0 to go on. Empty (the
/// default): none.
void setThreadStartHook(std::function<int()> hook);

/// What the hook returns; 0 without one.
int callThreadStartHook();

} // namespace mirel
