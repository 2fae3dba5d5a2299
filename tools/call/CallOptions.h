#pragma once

#include "call/Messages.h"
#include "channels/nats/publish/NatsCallerOptions.h"
#include "channels/zmq/ZmqCaller.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace mirel {

struct CallOptions {
    ZmqCallerOptions connection;
    NatsCallerOptions nats; ///< instead, when the channel's address is one of NATS
    std::chrono::milliseconds deadline{5000}; ///< for connecting, and for each answer
    std::size_t window = 256;                 ///< requests on their way at once

    // One message, or the pattern of a load.
    std::string kind = "request";
    Sender sender{"mirel-call"};
    std::string interface;
    std::string protocol;
    std::string data;
    int timerId = 0;

    std::string input; ///< file of messages; "-": standard input; empty: none

    unsigned long load = 0; ///< requests of a load; 0: none
    unsigned long sources = 1;
    std::vector<int> priorities; ///< taken in turn by each source; empty: the sender's
    std::string timeline;        ///< file for the load's answers over time; empty: none
};

/// Connects to the service that the options name.
std::unique_ptr<Caller> newCaller(const CallOptions& options);

/// Reads the command line. A number: the program has said what there was to say, and exits with it.
std::optional<int> parseCallOptions(int argc, char** argv, CallOptions& options);

} // namespace mirel
