#pragma once

#include <cstdint>
#include <string>

namespace mirel {

class NatsConnection;

/// Stores a message that was given up: its bytes as they were sent, so that they can be sent again,
/// and in the header "Mirel-Failure" why. Once for each sequence. `NatsError` when it is not stored.
void storeDeadLetter(NatsConnection& connection, const std::string& bytes, const std::string& why,
                     std::uint64_t sequence);

} // namespace mirel
