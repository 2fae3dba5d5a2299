#include "simulated/SimulatedHost.h"

#include "framework/Serializer.h"
#include "framework/Threader.h"
#include "simulated/Simulation.h"

namespace mirel::simulated {

SimulatedHost::SimulatedHost(Executable& service, const std::string& interface, bool multiThreaded,
                             int maxPoolSize)
    : m_interface(interface),
      m_pool(maxPoolSize, nullptr),
      m_executor(std::make_unique<ServiceExecutor>(&service, new SimulatedChannel(m_traffic),
                                                   interface, &m_context, &m_pool, nullptr,
                                                   multiThreaded)) {
    Threader threader;
    unsigned long threadId = 0;
    m_executor->startThread(threader, threadId);
}

SimulatedHost::~SimulatedHost() { finish(); }

long SimulatedHost::send(const std::string& source, const std::string& data, int priority) {
    CommsChannelDataContainerMessage message;
    message.sourceChannel() = source;
    message.callbackChannel() = source;
    message.interface() = m_interface;
    message.protocol() = "text";
    message.setPriority(MirelThreadPriority(priority));
    message.setRequestId(++m_sent);
    message.setData(data);
    m_traffic->send(std::move(message));
    return m_sent;
}

void SimulatedHost::sendTimer(int timerId, int priority) {
    CommsChannelDataContainerMessage message;
    message.setMsgType(6);
    message.setPriority(MirelThreadPriority(priority));
    message.setData(Serializer::serialize(timerId));
    m_traffic->send(std::move(message));
}

std::vector<Answer> SimulatedHost::finish() {
    if (m_executor) {
        const auto expected = static_cast<std::size_t>(m_sent);
        waitUntil(
            [&] { return m_traffic->unread.empty() && m_traffic->answers.size() >= expected; },
            "finish: all requests answered");
        m_executor->shutdown();
        m_pool.shutdown();
        m_executor.reset();
    }
    return m_traffic->answers;
}

} // namespace mirel::simulated
