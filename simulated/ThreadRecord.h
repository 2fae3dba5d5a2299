#pragma once

namespace mirel {

/// What the simulation knows of the thread that runs one `Threadable`; shared by the object, its
/// copies and the thread, so that it outlives whichever of them goes first.
class ThreadRecord {
public:
    int thread = -1;    ///< number of the last one started
    bool ended = false; ///< and it has
};

} // namespace mirel
