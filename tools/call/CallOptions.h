#pragma once

#include "call/Messages.h"
#include "channels/open/AllTransports.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace mirel {

struct CallOptions {
    Transports transports = allTransports(); ///< with the options given for them
    CallerSettings connection;
    std::chrono::milliseconds deadline{5000}; ///< for connecting, and for each answer
    std::size_t window = 256;                 ///< requests on their way at once

    // One message, or the pattern of a load.
    std::string kind = "request";
    Sender sender;
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

/// Reads the command line. A number: the program has said what there was to say, and exits with it.
std::optional<int> parseCallOptions(int argc, char** argv, CallOptions& options);

} // namespace mirel
