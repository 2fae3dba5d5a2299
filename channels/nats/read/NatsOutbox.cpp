#include "channels/nats/read/NatsOutbox.h"

#include "framework/Threader.h"
#include "runtime/threads/SignalsBlocked.h"

#include <utility>

namespace mirel {

NatsOutbox::NatsOutbox(std::function<void(const Item&)> send) : m_send(std::move(send)) {
    unsigned long threadId = 0;
    Threader().createThread(threadId, this, "", 0, 0);
}

NatsOutbox::~NatsOutbox() {
    stop();
    waitForThreadCompletion();
}

void NatsOutbox::stop() {
    const Lock lock(m_mutex);
    m_stop = true;
    m_added.notify_one();
}

void NatsOutbox::put(Item item) {
    const Lock lock(m_mutex);
    m_items.push_back(std::move(item));
    ++m_addedSoFar;
}

void NatsOutbox::send() {
    {
        const Lock lock(m_mutex);
        if (m_items.empty() || m_woken)
            return;
        m_woken = true;
    }
    m_added.notify_one();
}

void NatsOutbox::add(Item item) {
    put(std::move(item));
    send();
}

bool NatsOutbox::waitUntilSent(std::chrono::milliseconds patience) {
    Lock lock(m_mutex);
    const std::uint64_t all = m_addedSoFar;
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (m_sentSoFar < all && lock.waitUntil(m_sent, deadline)) {
    }
    return m_sentSoFar >= all;
}

MirelThreadPriority NatsOutbox::getThreadPriorityForPlatform() {
    return ePriorityHigh; // answers of every priority go through here
}

std::string NatsOutbox::type() { return "mirel-answer"; }

void NatsOutbox::run() {
    const SignalsBlocked signalsBlocked;
    std::deque<Item> taken;
    Lock lock(m_mutex);
    while (!m_stop || !m_items.empty()) {
        while (!m_stop && !m_woken)
            lock.wait(m_added);
        m_woken = false; // before it looks, so that whoever adds from here on wakes it
        taken.swap(m_items);
        lock.unlock();
        for (const Item& item : taken)
            m_send(item);
        lock.lock();
        m_sentSoFar += taken.size();
        taken.clear();
        m_sent.notify_all();
    }
}

} // namespace mirel
