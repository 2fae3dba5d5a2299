#include "bench/Window.h"

#include <utility>

namespace bench {

Window::Window(mirel::MessageQueue& queue, std::vector<CommsChannelDataContainerMessage> requests,
               std::size_t size)
    : m_queue(queue),
      m_requests(std::move(requests)),
      m_slots(size) {}

void Window::start(std::size_t count) {
    m_count = count;
    m_sent = m_inUse = m_slots.size();
    for (std::size_t slot = 0; slot < m_slots.size(); ++slot)
        send(slot);
}

void Window::answered(const mirel::Answer& answer) {
    const auto slot = static_cast<std::size_t>(answer.requestId);
    m_slots[slot].latencies.push_back(Clock::now() - m_slots[slot].sentAt);
    if (m_sent++ < m_count)
        send(slot);
    else if (--m_inUse == 0)
        m_caller.wake();
}

Durations Window::takeLatencies() {
    Durations all;
    for (Slot& slot : m_slots) {
        all.insert(all.end(), slot.latencies.begin(), slot.latencies.end());
        slot.latencies.clear();
    }
    return all;
}

void Window::send(std::size_t slot) {
    CommsChannelDataContainerMessage msg = m_requests[m_next++ % m_requests.size()];
    msg.setRequestId(static_cast<long>(slot));
    m_slots[slot].sentAt = Clock::now();
    m_queue.send(std::move(msg));
}

} // namespace bench
