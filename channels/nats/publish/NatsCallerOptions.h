#pragma once

#include "channels/nats/wire/NatsConnectionOptions.h"

#include <cstddef>
#include <string>

namespace mirel {

struct NatsCallerOptions {
    NatsConnectionOptions connection;

    /// Under which answers come back and requests are known to the server: letters, digits, - and
    /// _. A caller that comes back under its name, with the same password, credentials or key, and
    /// repeats a request with its number, does not make it run twice, within two minutes. Without
    /// authentication others can have the server take such a request for a repeated one. Empty: a
    /// new one.
    std::string name;

    /// Largest message sent, as encoded, in bytes; the server has its own limit.
    std::size_t maxMessageBytes = std::size_t{1} << 20;
};

} // namespace mirel
