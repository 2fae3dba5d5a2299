#pragma once

class CommsChannelDataContainerMessage;

/// The inbound channel of one service.
class CommsChannelIfc {
public:
    virtual ~CommsChannelIfc() = default;

    /// Blocks until the next message is in `msg` (true) or the channel will deliver no more
    /// (false, and false ever after). Called by the executor's thread only.
    virtual bool readMessage(CommsChannelDataContainerMessage& msg) = 0;

    /// Ends reading: a pending and every later `readMessage` returns false. Any thread; repeatable.
    virtual void close() = 0;

    /// The provider's part of the channel, by which its responses find their way back; null when
    /// there is none. The library does not use it.
    virtual void* opaque() { return nullptr; }
};
