#include "bench/Placement.h"

#include <sched.h>
#include <unistd.h>

namespace bench {

namespace {

/// Those of the main thread when this is first called.
const cpu_set_t& processCores() {
    static const cpu_set_t cores = [] {
        cpu_set_t set{};
        sched_getaffinity(getpid(), sizeof set, &set);
        return set;
    }();
    return cores;
}

/// To the process's first or second.
void bindToOne(int index) {
    cpu_set_t one{};
    for (int core = 0; core < CPU_SETSIZE; ++core)
        if (CPU_ISSET(core, &processCores()) && index-- == 0)
            CPU_SET(core, &one);
    sched_setaffinity(0, sizeof one, &one);
}

} // namespace

bool possible(Placement placement) {
    return placement != Placement::eTwoCores || CPU_COUNT(&processCores()) >= 2;
}

void placeReader(Placement placement) {
    if (placement == Placement::eFree)
        sched_setaffinity(0, sizeof processCores(), &processCores());
    else
        bindToOne(0);
}

void placeHandler(Placement placement) {
    if (placement == Placement::eTwoCores)
        bindToOne(1);
    else
        placeReader(placement);
}

} // namespace bench
