#pragma once

#include "framework/CommsChannelIfc.h"

#include <memory>
#include <vector>

namespace bench {

class Workload;

/// Brings requests from the thread that reads them to the handler: those of one source one at a
/// time and in their order. Runs from its making until it is destroyed, which is when nothing that
/// it has read is unanswered.
class Contestant {
public:
    virtual ~Contestant() = default;
};

/// A kind of contestant, with its setting.
struct Kind {
    enum Threads {
        eOnePerSource, ///< a handler that blocks holds up nobody else
        eOnePerCore,   ///< as many blocked handlers as cores hold up everybody
    };

    const char* name;
    Threads threads;
    std::unique_ptr<Contestant> (*make)(std::unique_ptr<CommsChannelIfc> channel,
                                        Workload& workload, int threads);

    std::unique_ptr<Contestant> start(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
                                      int sources) const;
};

/// The library first.
const std::vector<Kind>& contestants();

} // namespace bench
