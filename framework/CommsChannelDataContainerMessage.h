#pragma once

#include "framework/MirelThreadPriority.h"
#include "framework/Opaque.h"

#include <string>

/// One message as read from a channel. A value: used by one thread at a time.
class CommsChannelDataContainerMessage {
public:
    CommsChannelDataContainerMessage();
    CommsChannelDataContainerMessage(const CommsChannelDataContainerMessage&);
    CommsChannelDataContainerMessage(CommsChannelDataContainerMessage&&) noexcept;
    CommsChannelDataContainerMessage& operator=(const CommsChannelDataContainerMessage&);
    CommsChannelDataContainerMessage& operator=(CommsChannelDataContainerMessage&&) noexcept;

    /// 6 marks a timer event; no other type has a number of its own.
    int msgType();

    /// Priority of the thread that is to run the message.
    MirelThreadPriority priority();

    /// What the message asks for. Both non-empty: an invoker request; otherwise a legacy message.
    std::string& protocol();
    std::string& interface();

    /// The channel that the message came from: what orders requests.
    std::string& sourceChannel();

    /// The channel that the message was sent to: this service's.
    virtual std::string& channel();

    /// Declared after `channel`, which keeps the first place among the virtual functions.
    virtual ~CommsChannelDataContainerMessage();

    /// The channel to which the response goes.
    std::string& callbackChannel();

    long requestId();
    std::string& proxyCallMode();
    std::string& remoteContext();

    /// The body, or for a timer event the serialised timer identifier. A copy.
    std::string getData();

    // The library does not use these. They are for the channel that fills the message.

    void setMsgType(int type);
    void setPriority(MirelThreadPriority priority);
    void setRequestId(long id);
    void setData(std::string data);

private:
    Opaque<288> m_opaque;
};
