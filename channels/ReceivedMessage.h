#pragma once

#include "channels/Envelope.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace mirel {

class RefusalCounter;

/// "WHAT has N bytes and M are the limit".
std::string tooLong(const std::string& what, std::size_t bytes, std::size_t limit);

/// Decodes what a transport has received. Nothing when no executor should see it: then it has been
/// counted, and `answer` called if somebody waits for an answer.
std::optional<SentMessage> decodeReceived(std::string_view bytes, std::string callbackChannel,
                                          std::size_t maxBytes, RefusalCounter& refused,
                                          const std::function<void(const Answer&)>& answer);

} // namespace mirel
