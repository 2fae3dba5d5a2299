#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

/// What a message carries as its callback channel: who gets its answer, which message of the
/// stream it is, and by what right it was read. So an answer needs nothing else to find its way,
/// whoever gives it.
struct NatsReturn {
    std::string caller; ///< see NatsAddress
    unsigned partition = 0;
    unsigned long tenure = 0; ///< see NatsLeases
    std::uint64_t streamSequence = 0;

    std::string text() const;
    static std::optional<NatsReturn> parse(const std::string& text);
};

/// The numbers of the answers that a caller has taken, each with a blank behind it. Nothing of what
/// is no such text: a caller could have the server answer in his place. Without a body it is the
/// server's word that the caller is not there now.
std::vector<std::uint64_t> readConfirmations(std::string_view bytes);

} // namespace mirel
