#include "bench/Peer.h"

#include "bench/Workload.h"
#include "framework/Invoker.h"
#include "framework/InvokerResponse.h"

namespace bench {

void Request::run() {
    invoker->handleMessage(service, data.data(), static_cast<int>(data.size()), response);
}

Peer::Peer(std::unique_ptr<CommsChannelIfc> channel, Workload& workload)
    : m_channel(std::move(channel)),
      m_workload(workload) {}

void Peer::startReading() {
    m_reader = std::thread([this] { read(); });
}

void Peer::stopReading() {
    m_channel->close();
    m_reader.join();
}

void Peer::read() {
    mirel::ServiceContext& context = m_workload.context();
    for (;;) {
        CommsChannelDataContainerMessage msg;
        if (!m_channel->readMessage(msg))
            return;
        Invoker* const invoker = context.findInvoker(msg.interface(), msg.protocol());
        invoker->initialise(&context);
        auto* const response = new InvokerResponse(
            m_channel.get(), msg.sourceChannel(), msg.callbackChannel(), msg.protocol(),
            msg.interface(), msg.requestId(), msg.proxyCallMode(), msg.remoteContext(), 0);
        post(msg.sourceChannel(), {invoker, &m_workload.service(), msg.getData(), response});
    }
}

} // namespace bench
