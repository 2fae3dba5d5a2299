#pragma once

#include "framework/CommsChannelIfc.h"

#include <memory>
#include <string>
#include <vector>

class Executable;
class Invoker;
class InvokerResponse;

namespace bench {

class Workload;

/// A request that is ready to run. As the library's record of one: destroying it deletes nothing.
struct Request {
    Invoker* invoker = nullptr;
    Executable* service = nullptr;
    std::string data;
    InvokerResponse* response = nullptr;

    void run();
};

/// What a user would take instead of the library. Destroyed, it has run all that was posted.
class Peer {
public:
    virtual ~Peer() = default;

    /// Runs the request after those of the same source that were posted before. The queue of a
    /// source is found by its name. One thread posts.
    virtual void post(const std::string& source, Request request) = 0;
};

/// Boost.Asio: a `thread_pool` and a strand for each source.
std::unique_ptr<Peer> makeAsioPeer(int threads);

/// oneTBB: an arena of that many threads and a serial `function_node` for each source.
std::unique_ptr<Peer> makeTbbPeer(int threads);

/// CAF: an actor for each source, under the work-stealing scheduler.
std::unique_ptr<Peer> makeCafPeer(int threads);

/// What one writes in an afternoon: a queue for each source and, when there are as many threads, a
/// thread for each of them; all under one mutex.
std::unique_ptr<Peer> makeThreadPerSourcePeer(int threads);

/// Brings requests from the thread that reads them to the handler: those of one source one at a
/// time and in their order. Runs from its making until it is destroyed, which is when nothing that
/// it has read is unanswered.
using Contestant = std::shared_ptr<void>;

/// Does with a message what the library's executor does, up to the point where the request goes to
/// another thread, and leaves that to the peer.
Contestant startPeer(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
                     std::unique_ptr<Peer> peer);

/// A kind of contestant, with its setting.
struct Kind {
    enum Threads {
        eOnePerSource, ///< a handler that blocks holds up nobody else
        eOnePerCore,   ///< as many blocked handlers as cores hold up everybody
        eSixteen,      ///< fewer than sources
        eReaderOnly,   ///< the thread that reads handles; the library's inline path
    };

    const char* name;
    Threads threads;
    std::unique_ptr<Peer> (*makePeer)(int threads) = nullptr; ///< none: the library

    Contestant start(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
                     int sources) const;
};

/// The library first.
const std::vector<Kind>& contestants();

} // namespace bench
