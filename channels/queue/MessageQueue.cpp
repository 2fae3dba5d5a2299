#include "channels/queue/MessageQueue.h"

#include "framework/MirelException.h"
#include "runtime/threads/PendingWakeUps.h"
#include "runtime/values/MessageRules.h"

#include <algorithm>
#include <utility>

namespace mirel {

namespace {

void checkMessage(CommsChannelDataContainerMessage& msg) {
    const std::string why = whyRefused(msg);
    if (!why.empty())
        throw MirelException("message refused: " + why, __FILE__, __LINE__);
}

} // namespace

MessageQueue::MessageQueue(std::size_t capacity, MessageLine::SenderOf senderOf)
    : m_capacity(std::max<std::size_t>(capacity, 1)),
      m_messages(senderOf) {}

bool MessageQueue::send(CommsChannelDataContainerMessage msg) {
    checkMessage(msg);
    PendingWakeUps::ofThisThread().issue();
    Lock lock(m_mutex);
    while (!m_closed && full())
        lock.wait(m_notFull);
    return append(msg);
}

bool MessageQueue::trySend(CommsChannelDataContainerMessage& msg,
                           std::chrono::milliseconds patience) {
    checkMessage(msg);
    PendingWakeUps::ofThisThread().issue();
    Lock lock(m_mutex);
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!m_closed && full() && lock.waitUntil(m_notFull, deadline)) {
    }
    return !full() && append(msg);
}

void MessageQueue::sendWhatFits(std::deque<CommsChannelDataContainerMessage>& messages) {
    {
        const Lock lock(m_mutex);
        while (!m_closed && !messages.empty() && !full()) {
            m_messages.push(std::move(messages.front()));
            messages.pop_front();
        }
    }
    m_notEmpty.notify_one(); // after the release, or the one reader would wake to a locked queue
}

std::size_t MessageQueue::room() const {
    const Lock lock(m_mutex);
    return m_capacity - m_messages.size();
}

bool MessageQueue::full() const { return m_messages.size() == m_capacity; }

bool MessageQueue::append(CommsChannelDataContainerMessage& msg) {
    if (m_closed)
        return false;
    m_messages.push(std::move(msg));
    m_notEmpty.notify_one();
    return true;
}

bool MessageQueue::read(CommsChannelDataContainerMessage& msg) {
    PendingWakeUps::ofThisThread().issue();
    bool wasFull = false;
    {
        Lock lock(m_mutex);
        while (!m_closed && m_messages.size() == 0)
            lock.wait(m_notEmpty);
        if (m_closed)
            return false;
        wasFull = full();
        msg = m_messages.pop();
        m_notFull.notify_one();
    }
    if (wasFull && m_onRoom)
        m_onRoom();
    return true;
}

void MessageQueue::onRoom(std::function<void()> room) { m_onRoom = std::move(room); }

void MessageQueue::close() {
    const Lock lock(m_mutex);
    m_closed = true;
    m_notEmpty.notify_all();
    m_notFull.notify_all();
}

bool MessageQueue::closed() const {
    const Lock lock(m_mutex);
    return m_closed;
}

std::deque<CommsChannelDataContainerMessage> MessageQueue::takeRest() {
    const Lock lock(m_mutex);
    m_notFull.notify_all();
    return m_messages.takeAll();
}

} // namespace mirel
