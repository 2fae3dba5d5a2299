#include "channels/nats/read/NatsAttempts.h"

#include <sstream>
#include <string>

namespace mirel {

bool NatsAttempts::begin(unsigned partition, const std::string& message, unsigned most) {
    const std::string key = "partition-" + std::to_string(partition);
    Attempt& own = m_own[partition];
    if (own.message != message) {
        std::string last;
        unsigned count = 0;
        std::istringstream(m_store.read(key)) >> last >> count;
        if (last != message)
            count = 1;
        if (count >= most)
            return false;
        own = {message, count + 1, false};
    }
    if (!own.written) // a value whose confirmation got lost may be there, and is the same
        m_store.write(key, message + " " + std::to_string(own.count));
    own.written = true;
    return true;
}

} // namespace mirel
