#pragma once

#include "framework/CommsChannelDataContainerMessage.h"

#include <string>

namespace mirel {

/// Who sends a message, and how urgent it is.
struct Sender {
    std::string source;
    int priority = ePriorityNormal;
};

CommsChannelDataContainerMessage makeRequest(const Sender& sender, const std::string& interface,
                                             const std::string& protocol, const std::string& data);
CommsChannelDataContainerMessage makeTimerEvent(const Sender& sender, int timerId);
CommsChannelDataContainerMessage makeLegacyMessage(const Sender& sender, const std::string& data);

} // namespace mirel
