#pragma once

#include <string>

namespace mirel {

class NatsConnection;

/// Stores a message that was given up: its bytes as they were sent, so that they can be sent again,
/// and in the header "Mirel-Failure" why. Once for each name. `NatsError` when it is not stored.
void storeDeadLetter(NatsConnection& connection, const std::string& bytes, const std::string& why,
                     const std::string& name);

} // namespace mirel
