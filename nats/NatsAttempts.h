#pragma once

#include "nats/NatsBucket.h"

#include <cstdint>

namespace mirel {

/// How often each partition's message in doubt has been handed out, written before it is: so that
/// who comes after a host that died of it knows. Used by one thread.
class NatsAttempts {
public:
    NatsAttempts(NatsConnection& connection, int replicas);

    /// Counts one more attempt at the message. False, and nothing is counted, when there have been
    /// `most`, the one included that brought it in doubt. `NatsError`.
    bool begin(unsigned partition, std::uint64_t sequence, unsigned most);

private:
    NatsBucket m_bucket;
};

} // namespace mirel
