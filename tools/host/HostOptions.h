#pragma once

#include "channels/nats/read/NatsChannelOptions.h"
#include "channels/zmq/ZmqChannelOptions.h"
#include "runtime/threads/ThreadOptions.h"

#include <optional>
#include <string>

namespace mirel {

struct HostOptions {
    std::string serviceLibrary;
    std::string creator;
    std::string interface;
    ZmqChannelOptions channel;
    NatsChannelOptions nats; ///< instead, when the channel's address is one of NATS
    ThreadOptions threads;
    bool singleThreaded = false;
    int maxPool = 16;
    unsigned long maxUnfinished = 1000;
    std::string logLevels;    ///< empty: as the environment says
    std::string generateKeys; ///< make key files with this name instead of serving
};

/// Reads the command line. A number: the program has said what there was to say, and exits with it.
std::optional<int> parseHostOptions(int argc, char** argv, HostOptions& options);

} // namespace mirel
