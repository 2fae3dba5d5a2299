#include "nats/NatsLedger.h"

#include <utility>

namespace mirel {

void NatsLedger::add(unsigned partition, std::uint64_t sequence, std::string acknowledgeTo) {
    const std::lock_guard lock(m_mutex);
    if (m_entries
            .insert_or_assign(sequence, Entry{partition, std::move(acknowledgeTo), Clock::now()})
            .second)
        ++m_partitions[partition].unsettled;
}

bool NatsLedger::remove(std::uint64_t sequence) {
    const std::lock_guard lock(m_mutex);
    const auto entry = m_entries.find(sequence);
    if (entry == m_entries.end())
        return false;
    Partition& partition = m_partitions[entry->second.partition];
    --partition.unsettled;
    m_entries.erase(entry);
    return std::exchange(partition.readerWaits, false);
}

void NatsLedger::drop(std::uint64_t sequence) {
    const std::lock_guard lock(m_mutex);
    const auto entry = m_entries.find(sequence);
    if (entry == m_entries.end())
        return;
    Partition& partition = m_partitions[entry->second.partition];
    --partition.unsettled;
    if (partition.firstDropped == 0 || sequence < partition.firstDropped)
        partition.firstDropped = sequence;
    m_entries.erase(entry);
}

std::uint64_t NatsLedger::takeFirstDropped(unsigned partition) {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_partitions[partition].firstDropped, 0);
}

void NatsLedger::wakeReader(unsigned partition) {
    const std::lock_guard lock(m_mutex);
    m_partitions[partition].readerWaits = true;
}

std::size_t NatsLedger::unsettled(unsigned partition) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_partitions.find(partition);
    return found == m_partitions.end() ? 0 : found->second.unsettled;
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
