#include "channels/nats/read/NatsDeadLetter.h"

#include "channels/nats/wire/NatsConnection.h"
#include "channels/nats/wire/NatsHandles.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string_view>

namespace mirel {

namespace {

constexpr std::int64_t kPatienceMs = 2000;

NatsMessage newMessage(const std::string& subject, const std::string& bytes) {
    natsMsg* made = nullptr;
    if (natsMsg_Create(&made, subject.c_str(), nullptr, bytes.data(),
                       static_cast<int>(bytes.size())) != NATS_OK)
        throw NatsError(0, "there is no memory for it");
    return NatsMessage(made);
}

} // namespace

void storeDeadLetter(NatsConnection& connection, const std::string& bytes, const std::string& why,
                     const std::string& name) {
    const NatsMessage msg = newMessage(connection.address().deadLetters(), bytes);
    natsMsgHeader_Set(msg.get(), "Nats-Msg-Id", name.c_str());
    natsMsgHeader_Set(msg.get(), "Mirel-Failure", why.c_str());
    natsMsg* received = nullptr;
    const natsStatus status =
        natsConnection_RequestMsg(&received, connection.get(), msg.get(), kPatienceMs);
    const NatsMessage reply(received);
    if (status != NATS_OK)
        throw NatsError(0, natsStatus_GetText(status));
    const auto answer = nlohmann::json::parse(bytesOf(received), nullptr, false);
    if (!answer.is_object() || answer.contains("error"))
        throw NatsError(0, "the server did not store it");
}

} // namespace mirel
