#include "channels/zmq/ZmqChannel.h"

#include "channels/ChannelCounters.h"
#include "channels/queue/MessageQueue.h"
#include "channels/zmq/ZmqOutbox.h"
#include "channels/zmq/ZmqSocketThread.h"

namespace mirel {

ZmqChannel::ZmqChannel(const ZmqChannelOptions& options)
    : m_counters(std::make_shared<ChannelCounters>("ZmqChannel", options.url)),
      m_outbox(std::make_shared<ZmqOutbox>(m_counters)),
      m_queue(std::make_unique<MessageQueue>(options.queueLength)),
      m_thread(std::make_unique<ZmqSocketThread>(options, *m_queue, *m_outbox, *m_counters)) {
    m_queue->onRoom([outbox = m_outbox] { outbox->wake().set(); });
    m_thread->start();
}

ZmqChannel::~ZmqChannel() { ZmqChannel::close(); }

bool ZmqChannel::readMessage(CommsChannelDataContainerMessage& msg) { return m_queue->read(msg); }

void ZmqChannel::close() {
    m_queue->close();
    m_outbox->wake().set(); // the socket's thread answers what was not read
}

std::shared_ptr<AnswerSink> ZmqChannel::answerSink() { return m_outbox; }

const std::string& ZmqChannel::url() const { return m_thread->url(); }

std::shared_ptr<const ChannelCounters> ZmqChannel::counters() const { return m_counters; }

} // namespace mirel
