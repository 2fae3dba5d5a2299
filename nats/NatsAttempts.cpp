#include "nats/NatsAttempts.h"

#include "nats/NatsConnection.h"

#include <sstream>
#include <string>

namespace mirel {

NatsAttempts::NatsAttempts(NatsConnection& connection, int replicas)
    : m_bucket(connection, connection.address().attempts(), std::chrono::milliseconds(0),
               replicas) {}

bool NatsAttempts::begin(unsigned partition, std::uint64_t sequence, unsigned most) {
    const std::string key = "partition-" + std::to_string(partition);
    std::uint64_t last = 0;
    unsigned count = 0;
    if (const auto value = m_bucket.get(key))
        std::istringstream(value->text) >> last >> count;
    if (last != sequence)
        count = 1;
    if (count >= most)
        return false;
    m_bucket.put(key, std::to_string(sequence) + " " + std::to_string(count + 1));
    return true;
}

} // namespace mirel
