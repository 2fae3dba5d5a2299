#pragma once

#include <string>

class CommsChannelDataContainerMessage;

namespace mirel {

constexpr int kTimerEvent = 6; ///< the message type that marks a timer event

/// Whether the message is an invoker request, the one kind that is answered.
bool isInvokerRequest(CommsChannelDataContainerMessage& msg);

/// Why an executor must not see this message (its priority is not 0, 1 or 2, or it is a timer event
/// whose data cannot be read), as a text that says what would be right; empty when there is nothing
/// wrong with it. Every channel asks before it accepts a message, because either would end the
/// executor's loop.
std::string whyRefused(CommsChannelDataContainerMessage& msg);

} // namespace mirel
