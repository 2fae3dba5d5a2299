#pragma once

#include "channels/open/AllTransports.h"
#include "runtime/threads/ThreadOptions.h"

#include <functional>
#include <optional>
#include <string>

namespace mirel {

struct HostOptions {
    std::string serviceLibrary;
    std::string creator;
    std::string interface;
    Transports transports = allTransports(); ///< with the options given for them
    ChannelSettings channel;
    ThreadOptions threads;
    bool singleThreaded = false;
    int maxPool = 64;
    unsigned long maxUnfinished = 10000;
    unsigned long maxWorkers = 0; ///< 0: 1000, if the system allows it
    std::string logLevels;        ///< empty: as the environment says
    std::size_t loggedData = 0;   ///< bytes of a failed request's data

    /// To be done instead of serving, unless empty; returns what to tell about it.
    std::function<std::string()> instead;
};

/// Reads the command line. A number: the program has said what there was to say, and exits with it.
std::optional<int> parseHostOptions(int argc, char** argv, HostOptions& options);

} // namespace mirel
