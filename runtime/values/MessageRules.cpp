#include "runtime/values/MessageRules.h"

#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/MirelException.h"
#include "framework/Serializer.h"

namespace mirel {

bool isInvokerRequest(CommsChannelDataContainerMessage& msg) {
    return msg.msgType() != kTimerEvent && !msg.protocol().empty() && !msg.interface().empty();
}

std::string whyRefused(CommsChannelDataContainerMessage& msg) {
    if (msg.priority() < ePriorityLow || msg.priority() > ePriorityHigh)
        return "its priority is " + std::to_string(msg.priority()) + " and must be 0, 1 or 2";
    if (msg.msgType() == kTimerEvent) {
        std::string data = msg.getData();
        int timerId = 0;
        try {
            Serializer::deserialize(data, timerId);
        } catch (const MirelException& failure) {
            return "it is a timer event, whose data must be a serialised timer identifier: " +
                   failure.message();
        }
    }
    return {};
}

} // namespace mirel
