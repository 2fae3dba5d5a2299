#include "framework/CommsChannelDataContainerMessage.h"

#include <utility>

using Message = CommsChannelDataContainerMessage;

namespace {

struct State {
    int msgType = 0;
    MirelThreadPriority priority = ePriorityNormal;
    long requestId = 0;
    std::string protocol;
    std::string interface;
    std::string sourceChannel;
    std::string channel;
    std::string callbackChannel;
    std::string proxyCallMode;
    std::string remoteContext;
    std::string data;
};

} // namespace

Message::CommsChannelDataContainerMessage() { m_opaque.make<State>(); }
Message::CommsChannelDataContainerMessage(const Message& other) {
    m_opaque.make<State>(other.m_opaque.as<State>());
}
Message::CommsChannelDataContainerMessage(Message&& other) noexcept {
    m_opaque.make<State>(std::move(other.m_opaque.as<State>()));
}
Message& Message::operator=(const Message& other) {
    m_opaque.as<State>() = other.m_opaque.as<State>();
    return *this;
}
Message& Message::operator=(Message&& other) noexcept {
    m_opaque.as<State>() = std::move(other.m_opaque.as<State>());
    return *this;
}
Message::~CommsChannelDataContainerMessage() { m_opaque.destroy<State>(); }

int Message::msgType() { return m_opaque.as<State>().msgType; }
MirelThreadPriority Message::priority() { return m_opaque.as<State>().priority; }
std::string& Message::protocol() { return m_opaque.as<State>().protocol; }
std::string& Message::interface() { return m_opaque.as<State>().interface; }
std::string& Message::sourceChannel() { return m_opaque.as<State>().sourceChannel; }
std::string& Message::channel() { return m_opaque.as<State>().channel; }
std::string& Message::callbackChannel() { return m_opaque.as<State>().callbackChannel; }
long Message::requestId() { return m_opaque.as<State>().requestId; }
std::string& Message::proxyCallMode() { return m_opaque.as<State>().proxyCallMode; }
std::string& Message::remoteContext() { return m_opaque.as<State>().remoteContext; }
std::string Message::getData() { return m_opaque.as<State>().data; }

void Message::setMsgType(int type) { m_opaque.as<State>().msgType = type; }
void Message::setPriority(MirelThreadPriority priority) {
    m_opaque.as<State>().priority = priority;
}
void Message::setRequestId(long id) { m_opaque.as<State>().requestId = id; }
void Message::setData(std::string data) { m_opaque.as<State>().data = std::move(data); }
