#pragma once

#include "channels/nats/wire/NatsConnectionOptions.h"
#include "channels/nats/wire/NatsStream.h"

#include <chrono>
#include <cstddef>

namespace mirel {

struct NatsChannelOptions {
    NatsConnectionOptions connection;
    NatsStreamOptions stream;

    /// Requests of each partition that are delivered and not acknowledged at any time, 1 to 100000.
    std::size_t maxUnacknowledged = 256;

    /// Half of it after the server has last heard about a request in work, it is told that the work
    /// goes on. A request whose process says nothing for so long is delivered again. At least a
    /// second.
    std::chrono::milliseconds acknowledgeWithin{30000};

    /// A request whose host has died over it so often is given up. At least 2, because the first
    /// time does not tell it from the requests beside it.
    unsigned maxDeliveries = 5;

    /// How long a host that says nothing keeps its partitions. At least a second.
    std::chrono::milliseconds lease{5000};

    /// Largest message taken and largest answer given, in bytes, at least 1; the server has its own
    /// limit.
    std::size_t maxMessageBytes = std::size_t{1} << 20;
};

} // namespace mirel
