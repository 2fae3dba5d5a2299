#include "call/Messages.h"

#include "framework/Serializer.h"
#include "runtime/values/MessageRules.h"

#include <utility>

namespace mirel {

namespace {

CommsChannelDataContainerMessage makeMessage(const Sender& sender, std::string data) {
    CommsChannelDataContainerMessage msg;
    msg.sourceChannel() = sender.source;
    msg.setPriority(static_cast<MirelThreadPriority>(sender.priority));
    msg.setData(std::move(data));
    return msg;
}

} // namespace

CommsChannelDataContainerMessage makeRequest(const Sender& sender, const std::string& interface,
                                             const std::string& protocol, const std::string& data) {
    CommsChannelDataContainerMessage msg = makeMessage(sender, data);
    msg.interface() = interface;
    msg.protocol() = protocol;
    return msg;
}

CommsChannelDataContainerMessage makeTimerEvent(const Sender& sender, int timerId) {
    CommsChannelDataContainerMessage msg = makeMessage(sender, Serializer::serialize(timerId));
    msg.setMsgType(kTimerEvent);
    return msg;
}

CommsChannelDataContainerMessage makeLegacyMessage(const Sender& sender, const std::string& data) {
    return makeMessage(sender, data);
}

} // namespace mirel
