#include "channels/nats/read/NatsHandedOut.h"

#include <algorithm>

namespace mirel {

namespace {

// Sources are forgotten that were silent for long, when there are many.
constexpr std::size_t kManySources = 10000;
constexpr std::chrono::minutes kRemembered{60};

} // namespace

void NatsHandedOut::add(const Message& message) {
    m_last = message.sequence;
    m_lastStored = std::max(m_lastStored, message.stored); // a leader's clock may be late
    const auto now = Clock::now();
    if (m_lastOf.size() >= m_sweepAt) {
        std::erase_if(m_lastOf,
                      [now](const auto& entry) { return now - entry.second.at > kRemembered; });
        m_sweepAt = std::max(kManySources, 2 * m_lastOf.size());
    }
    m_lastOf[message.from] = {message.id, message.stored, now};
}

bool NatsHandedOut::isCopy(const Message& message) const {
    const auto last = m_lastOf.find(message.from);
    return last != m_lastOf.end() && !message.id.empty() && last->second.id == message.id &&
           last->second.stored != message.stored;
}

void NatsHandedOut::takeBack(std::uint64_t sequence) {
    m_last = std::min(m_last, sequence - 1);
    m_lastOf.clear(); // some of these have not run
}

void NatsHandedOut::clear() { *this = {}; }

} // namespace mirel
