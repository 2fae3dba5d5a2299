#pragma once

#include "framework/CommsChannelDataContainerMessage.h"

#include <vector>

namespace mirel {

struct CallOptions;

/// Sends the messages and prints what comes of each. True when every request was answered
/// successfully and in order.
bool runMessages(const CallOptions& options,
                 std::vector<CommsChannelDataContainerMessage> messages);

} // namespace mirel
