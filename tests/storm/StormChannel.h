#pragma once

#include "Accounting.h"
#include "channels/queue/MessageQueue.h"
#include "channels/queue/QueueChannel.h"

/// Reads from a queue and notes what it has read in the accounting. Each message gets its planned
/// priority here, because a queue refuses some of them.
class StormChannel : public mirel::AnsweringChannel {
public:
    /// Ends by itself after `messages` messages.
    StormChannel(std::shared_ptr<mirel::MessageQueue> queue, std::shared_ptr<Accounting> accounting,
                 int messages)
        : m_accounting(std::move(accounting)),
          m_queue(std::move(queue)),
          m_unread(m_queue, [unread = m_accounting](
                                const mirel::Answer& answer) { unread->noteAnswer(answer); }),
          m_left(messages) {}

    bool readMessage(Message& message) override {
        if (m_left == 0 || !m_queue->read(message))
            return false;
        --m_left;
        m_lastRead = &m_accounting->noteRead(static_cast<std::size_t>(message.requestId()));
        message.setPriority(priorityOf(m_lastRead->plan->priority));
        return true;
    }
    void close() override { m_unread.close(); }
    std::shared_ptr<mirel::AnswerSink> answerSink() override { return m_accounting; }

    /// The last message read, or null. When the executor's thread has ended.
    MessageRecord* lastRead() const { return m_lastRead; }

    /// The message as it is sent.
    static Message makeMessage(const MessagePlan& plan, int number) {
        const std::string id = std::to_string(number);
        Message message = requestFrom(std::to_string(plan.source), id, 1, number);
        if (plan.kind == Kind::unoffered)
            message.interface() = "Other";
        if (plan.kind == Kind::unserved)
            message.protocol() = "none";
        if (plan.kind == Kind::legacy)
            message.protocol().clear();
        if (plan.kind == Kind::timer) {
            message.setMsgType(6);
            message.setData(Serializer::serialize(number));
        }
        return message;
    }

private:
    const std::shared_ptr<Accounting> m_accounting;
    const std::shared_ptr<mirel::MessageQueue> m_queue;
    mirel::QueueChannel m_unread; ///< answers what is not read
    int m_left;
    MessageRecord* m_lastRead = nullptr;
};
