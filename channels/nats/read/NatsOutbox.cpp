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
    {
        const std::lock_guard lock(m_mutex);
        m_stop = true;
        m_added.notify_one();
    }
    waitForThreadCompletion();
}

void NatsOutbox::add(Item item) {
    {
        const std::lock_guard lock(m_mutex);
        m_items.push_back(std::move(item));
        ++m_addedSoFar;
        if (m_items.size() > 1)
            return; // the thread has been woken and has not looked yet
    }
    m_added.notify_one();
}

bool NatsOutbox::waitUntilSent(std::chrono::milliseconds patience) {
    std::unique_lock lock(m_mutex);
    return m_sent.wait_for(lock, patience,
                           [this, all = m_addedSoFar] { return m_sentSoFar >= all; });
}

MirelThreadPriority NatsOutbox::getThreadPriorityForPlatform() {
    return ePriorityHigh; // answers of every priority go through here
}

std::string NatsOutbox::type() { return "mirel-answer"; }

void NatsOutbox::run() {
    const SignalsBlocked signalsBlocked;
    std::deque<Item> taken;
    std::unique_lock lock(m_mutex);
    while (!m_stop || !m_items.empty()) {
        m_added.wait(lock, [this] { return m_stop || !m_items.empty(); });
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
