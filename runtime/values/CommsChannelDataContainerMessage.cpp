#include "framework/CommsChannelDataContainerMessage.h"

#include <utility>

using Message = CommsChannelDataContainerMessage;

Message::CommsChannelDataContainerMessage() = default;
Message::~CommsChannelDataContainerMessage() = default;
Message::CommsChannelDataContainerMessage(const Message&) = default;
Message::CommsChannelDataContainerMessage(Message&&) noexcept = default;
Message& Message::operator=(const Message&) = default;
Message& Message::operator=(Message&&) noexcept = default;

int Message::msgType() { return m_msgType; }

MirelThreadPriority Message::priority() { return m_priority; }

std::string& Message::protocol() { return m_protocol; }

std::string& Message::interface() { return m_interface; }

std::string& Message::sourceChannel() { return m_sourceChannel; }

std::string& Message::channel() { return m_channel; }

std::string& Message::callbackChannel() { return m_callbackChannel; }

long Message::requestId() { return m_requestId; }

std::string& Message::proxyCallMode() { return m_proxyCallMode; }

std::string& Message::remoteContext() { return m_remoteContext; }

std::string Message::getData() { return m_data; }

void Message::setMsgType(int type) { m_msgType = type; }

void Message::setPriority(MirelThreadPriority priority) { m_priority = priority; }

void Message::setRequestId(long id) { m_requestId = id; }

void Message::setData(std::string data) { m_data = std::move(data); }
