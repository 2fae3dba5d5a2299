#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace mirel {

/// How a message is acknowledged that is done with.
inline constexpr const char* kAcknowledged = "+ACK";

/// What the server says about one message that it delivers, in the subject for acknowledging it.
struct NatsDelivery {
    std::string consumer;
    unsigned long times = 0; ///< that this consumer has delivered the message, this one included
    std::uint64_t streamSequence = 0;
    std::uint64_t consumerSequence = 0;
    std::uint64_t stored = 0; ///< when, in nanoseconds by the server's clock

    /// Nothing when the subject is no such one.
    static std::optional<NatsDelivery> parse(std::string_view subject);
};

/// What a message carries as its callback channel: where its answer goes, which message of the
/// stream it is, and by what right it was read. So an answer needs nothing else to find its way,
/// whoever gives it.
struct NatsReturn {
    std::string answersTo;
    unsigned partition = 0;
    unsigned long tenure = 0; ///< see NatsLeases
    std::uint64_t streamSequence = 0;

    std::string text() const;
    static std::optional<NatsReturn> parse(const std::string& text);
};

} // namespace mirel
