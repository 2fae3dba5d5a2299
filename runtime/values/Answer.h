#pragma once

#include <string>

namespace mirel {

/// What goes back to the caller of one request.
struct Answer {
    bool succeeded = false;
    long requestId = 0;
    std::string sourceChannel;   ///< the request's
    std::string callbackChannel; ///< where the answer goes
    std::string data;            ///< the service's data, or the text of the failure
};

} // namespace mirel
