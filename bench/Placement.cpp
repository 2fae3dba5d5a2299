#include "bench/Placement.h"

#include <sched.h>
#include <unistd.h>

namespace bench {

namespace {

/// Those of the main thread when this is first called.
const cpu_set_t& processCores() {
    static const cpu_set_t cores = [] {
        cpu_set_t set;
        CPU_ZERO(&set);
        sched_getaffinity(getpid(), sizeof set, &set);
        return set;
    }();
    return cores;
}

/// The process's first or second.
cpu_set_t oneOf(int index) {
    cpu_set_t result;
    CPU_ZERO(&result);
    for (int core = 0; core < CPU_SETSIZE; ++core)
        if (CPU_ISSET(core, &processCores()) && index-- == 0)
            CPU_SET(core, &result);
    return result;
}

void bindTo(const cpu_set_t& cores) { sched_setaffinity(0, sizeof cores, &cores); }

} // namespace

bool possible(Placement placement) {
    return placement != Placement::eTwoCores || CPU_COUNT(&processCores()) >= 2;
}

void placeReader(Placement placement) {
    bindTo(placement == Placement::eFree ? processCores() : oneOf(0));
}

void placeHandler(Placement placement) {
    if (placement == Placement::eTwoCores)
        bindTo(oneOf(1));
    else
        placeReader(placement);
}

} // namespace bench
