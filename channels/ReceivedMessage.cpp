#include "channels/ReceivedMessage.h"

#include "channels/RefusalCounter.h"
#include "runtime/values/MessageRules.h"

#include <new>
#include <utility>

namespace mirel {

std::string tooLong(const std::string& what, std::size_t bytes, std::size_t limit) {
    return what + " has " + std::to_string(bytes) + " bytes and " + std::to_string(limit) +
           " are the limit";
}

std::optional<SentMessage> decodeReceived(std::string_view bytes, std::string callbackChannel,
                                          std::size_t maxBytes, RefusalCounter& refused,
                                          const std::function<void(const Answer&)>& answer) {
    std::optional<SentMessage> sent;
    try {
        sent = decodeSent(bytes);
    } catch (const EnvelopeError& failure) {
        refused.refuse(std::string("it cannot be decoded: ") + failure.what());
        return std::nullopt;
    } catch (const std::bad_alloc&) {
        refused.refuse("there is no memory for it");
        return std::nullopt;
    }
    CommsChannelDataContainerMessage& msg = sent->msg;
    msg.callbackChannel() = std::move(callbackChannel);
    const std::string why =
        bytes.size() > maxBytes ? tooLong("it", bytes.size(), maxBytes) : whyRefused(msg);
    if (why.empty())
        return sent;
    refused.refuse(why);
    if (isInvokerRequest(msg))
        answer({false, msg.requestId(), msg.sourceChannel(), msg.callbackChannel(),
                "the request was refused: " + why});
    return std::nullopt;
}

} // namespace mirel
