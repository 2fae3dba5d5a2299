#pragma once

#include <cstdint>
#include <string>

namespace mirel {

/// What goes back to the caller of one request.
struct Answer {
    bool succeeded = false;
    long requestId = 0;
    std::string sourceChannel;   ///< the request's
    std::string callbackChannel; ///< where the answer goes
    std::string data;            ///< the service's data, or the text of the failure

    /// Not 0: the request was refused for lack of room, has not run, and may be sent again; how
    /// many its caller has been told of, this one included.
    std::uint64_t refusal = 0;
};

} // namespace mirel
