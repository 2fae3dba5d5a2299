#include "channels/zmq/ZmqChannel.h"

#include "channels/queue/MessageQueue.h"
#include "channels/zmq/ZmqOutbox.h"
#include "channels/zmq/ZmqReturn.h"
#include "channels/zmq/ZmqSocketThread.h"

namespace mirel {

ZmqChannel::ZmqChannel(const ZmqChannelOptions& options)
    : ServiceChannel("ZmqChannel", options.url),
      m_outbox(std::make_shared<ZmqOutbox>(m_counters)),
      m_queue(std::make_unique<MessageQueue>(options.queueLength, &zmqReturn::caller)),
      m_thread(std::make_unique<ZmqSocketThread>(options, *m_queue, *m_outbox, *m_counters)) {
    answerBy(m_outbox);
    m_queue->onRoom([outbox = m_outbox] { outbox->wake().set(); });
    m_thread->start();
}

ZmqChannel::~ZmqChannel() {
    failLastRead();
    close();
}

bool ZmqChannel::readNext(CommsChannelDataContainerMessage& msg) { return m_queue->read(msg); }

void ZmqChannel::closeTransport() {
    m_queue->close();
    m_outbox->wake().set(); // the socket's thread answers what was not read
}

std::string ZmqChannel::url() const { return m_thread->url(); }

} // namespace mirel
