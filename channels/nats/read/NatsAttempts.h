#pragma once

#include "channels/nats/wire/NatsBucket.h"

#include <map>
#include <string>

namespace mirel {

/// How often each partition's message in doubt has been handed out, written before it is: so that
/// who comes after a host that died of it knows. Used by one thread.
class NatsAttempts {
public:
    NatsAttempts(NatsConnection& connection, int replicas);

    /// Counts this process's attempt at the message, once. False, and nothing is counted, when there
    /// have been `most` of others, the one included that brought it in doubt. `NatsError`; to be
    /// called again then.
    bool begin(unsigned partition, const std::string& message, unsigned most);

private:
    struct Attempt {
        std::string message;
        unsigned count = 0;
        bool written = false;
    };

    NatsBucket m_bucket;
    std::map<unsigned, Attempt> m_own; ///< of each partition, the last one
};

} // namespace mirel
