#include "channels/nats/read/NatsAttempts.h"

#include "channels/nats/wire/NatsConnection.h"

#include <sstream>
#include <string>

namespace mirel {

NatsAttempts::NatsAttempts(NatsConnection& connection, int replicas)
    : m_bucket(connection, connection.address().attempts(), std::chrono::milliseconds(0),
               replicas) {}

bool NatsAttempts::begin(unsigned partition, const std::string& message, unsigned most) {
    const std::string key = "partition-" + std::to_string(partition);
    Attempt& own = m_own[partition];
    if (own.message != message) {
        std::string last;
        unsigned count = 0;
        if (const auto value = m_bucket.get(key))
            std::istringstream(value->text) >> last >> count;
        if (last != message)
            count = 1;
        if (count >= most)
            return false;
        own = {message, count + 1, false};
    }
    if (!own.written) // a value whose confirmation got lost may be there, and is the same
        m_bucket.put(key, message + " " + std::to_string(own.count));
    own.written = true;
    return true;
}

} // namespace mirel
