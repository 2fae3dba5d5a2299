#include "nats/NatsLedger.h"

#include <utility>

namespace mirel {

void NatsLedger::add(unsigned partition, std::uint64_t sequence, std::string acknowledgeTo) {
    const std::lock_guard lock(m_mutex);
    if (m_entries
            .insert_or_assign(sequence, Entry{partition, std::move(acknowledgeTo), Clock::now()})
            .second)
        ++m_unsettled[partition];
}

void NatsLedger::remove(std::uint64_t sequence) {
    const std::lock_guard lock(m_mutex);
    const auto entry = m_entries.find(sequence);
    if (entry == m_entries.end())
        return;
    --m_unsettled[entry->second.partition];
    m_entries.erase(entry);
}

std::size_t NatsLedger::unsettled(unsigned partition) const {
    const std::lock_guard lock(m_mutex);
    const auto count = m_unsettled.find(partition);
    return count == m_unsettled.end() ? 0 : count->second;
}

std::vector<std::string> NatsLedger::silentFor(Clock::duration silence) {
    std::vector<std::string> result;
    const Clock::time_point now = Clock::now();
    const std::lock_guard lock(m_mutex);
    for (auto& [sequence, entry] : m_entries) {
        if (now - entry.heardAbout < silence)
            continue;
        entry.heardAbout = now;
        result.push_back(entry.acknowledgeTo);
    }
    return result;
}

} // namespace mirel
