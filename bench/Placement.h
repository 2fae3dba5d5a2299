#pragma once

namespace bench {

/// Which cores the threads of a measurement run on. Waking a thread takes many times as long on
/// another core as on the waker's own, and where the system puts threads changes from run to run.
/// So latencies compare where both are bound in the same way.
enum class Placement {
    eFree,    ///< as the system likes
    eOneCore, ///< all on one
    eTwoCores ///< who reads and who calls on one, who handles on another
};

/// Whether this process has the cores.
bool possible(Placement placement);

/// Binds the calling thread; the threads that it starts begin where it is.
void placeReader(Placement placement);
void placeHandler(Placement placement);

} // namespace bench
