#pragma once

#include <functional>
#include <map>
#include <vector>

class MirelException;

namespace mirel {
struct LogLine;
}

namespace mirel::simulated {

struct MutexState {
    int owner = -1; ///< number of a thread
    int depth = 0;  ///< above 1 for recursive ones only
};

struct ConditionWaiter {
    bool woken = false;
};

/// What the parts of the simulated framework keep for the length of one run.
struct RunState {
    std::function<int()> onThreadStart; ///< what it returns, if not 0, is why a start is refused
    std::function<void(const LogLine&)> onLog;
    std::function<void(MirelException&)> onReport;

    // By address. Objects are not told apart from earlier ones at the same place, which does no
    // harm: a mutex is not destroyed while it is locked, nor a condition waited on.
    std::map<const void*, MutexState> mutexes;
    std::map<const void*, std::vector<ConditionWaiter*>> waiters;
};

} // namespace mirel::simulated
