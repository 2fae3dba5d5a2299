#pragma once

#include "framework/CommsChannelDataContainerMessage.h"
#include "runtime/values/Answer.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace mirel {

// Messages and answers as bytes between processes; docs/wire-format.md describes them.

/// Bytes that are no envelope, or a text too long for one. `what()` says what is wrong.
class EnvelopeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The callback channel is not part of either: the transport knows who sent what. A caller that
/// tells which refusals it knows of gets them numbered (see Shares.h).
std::string encode(CommsChannelDataContainerMessage& msg,
                   std::optional<std::uint64_t> refusalsKnown = std::nullopt);
std::string encode(const Answer& answer);

struct SentMessage {
    CommsChannelDataContainerMessage msg;
    std::optional<std::uint64_t> refusalsKnown;
};

/// Take bytes from anywhere, and `EnvelopeError` is all that they throw for them. Memory used is
/// bounded by the size of `bytes`. A decoded message may still be one that no executor should see.
SentMessage decodeSent(std::string_view bytes);
CommsChannelDataContainerMessage decodeMessage(std::string_view bytes);
Answer decodeAnswer(std::string_view bytes);

} // namespace mirel
