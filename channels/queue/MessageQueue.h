#pragma once

#include "channels/queue/MessageLine.h"
#include "runtime/threads/Mutex.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>

namespace mirel {

/// Bounded queue of messages between any number of senders and one reader, first in, first out, or
/// in turn (see MessageLine). Any thread may call any function.
class MessageQueue {
public:
    /// Holds at most `capacity` messages, at least 1.
    explicit MessageQueue(std::size_t capacity, MessageLine::SenderOf senderOf = nullptr);

    /// Appends, waiting while the queue is full. False when the queue is or gets closed; the
    /// message has not been taken then. `MirelException` for a message that no executor should see
    /// (see whyRefused in MessageRules.h).
    bool send(CommsChannelDataContainerMessage msg);

    /// The same, but gives up after `patience` (0: at once): false then, too.
    bool trySend(CommsChannelDataContainerMessage& msg, std::chrono::milliseconds patience);

    /// For a sender that must not wait: moves the first of `messages` into the queue, as many as
    /// there is room for, and none when it is closed. They have been checked already.
    void sendWhatFits(std::deque<CommsChannelDataContainerMessage>& messages);

    /// How many messages would fit in now. Only a sender makes it less.
    std::size_t room() const;

    /// Waits for a message and takes it. False once the queue is closed, even when it holds some.
    bool read(CommsChannelDataContainerMessage& msg);

    /// For a sender that must not wait: `room` is called by the reader, without the queue's lock,
    /// each time it has taken a message from a full queue. To be set before the first message.
    void onRoom(std::function<void()> room);

    void close();
    bool closed() const;

    /// What the queue still holds; leaves it empty.
    std::deque<CommsChannelDataContainerMessage> takeRest();

private:
    bool full() const MIREL_REQUIRES(m_mutex);

    /// Takes the message unless the queue is closed. The caller has made sure of the room.
    bool append(CommsChannelDataContainerMessage& msg) MIREL_REQUIRES(m_mutex);

    const std::size_t m_capacity;
    std::function<void()> m_onRoom;

    mutable Mutex m_mutex;
    std::condition_variable m_notEmpty;
    std::condition_variable m_notFull;
    MessageLine m_messages MIREL_GUARDED_BY(m_mutex);
    bool m_closed MIREL_GUARDED_BY(m_mutex) = false;
};

} // namespace mirel
