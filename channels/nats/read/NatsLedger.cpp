#include "channels/nats/read/NatsLedger.h"

namespace mirel {

NatsLedger::NatsLedger(Acknowledge acknowledge) : m_acknowledge(std::move(acknowledge)) {}

void NatsLedger::add(unsigned partition, std::uint64_t subject, std::uint64_t sequence,
                     std::string acknowledgeTo) {
    const Lock lock(m_mutex);
    if (!m_subjects.emplace(std::pair(partition, sequence), subject).second)
        return;
    m_entries.emplace(Place(subject, sequence),
                      Entry{partition, std::move(acknowledgeTo), Clock::now()});
    ++m_partitions[partition].unsettled;
}

bool NatsLedger::settle(unsigned number, std::uint64_t sequence, const char* how) {
    const Lock lock(m_mutex);
    const auto entry = find(number, sequence);
    if (entry == m_entries.end() || entry->second.settled)
        return false;
    Partition& partition = m_partitions[entry->second.partition];
    if (entry->second.stays) {
        erase(entry);
    } else {
        entry->second.settled = how;
        acknowledgeFirst(entry->first.first);
    }
    --partition.unsettled;
    return std::exchange(partition.readerWaits, false);
}

void NatsLedger::acknowledgeFirst(std::uint64_t subject) {
    auto entry = m_entries.lower_bound(Place(subject, 0));
    while (entry != m_entries.end() && entry->first.first == subject && entry->second.settled) {
        m_acknowledge(entry->second.acknowledgeTo, entry->second.settled);
        entry = erase(entry);
    }
}

void NatsLedger::drop(unsigned number, std::uint64_t sequence) {
    const Lock lock(m_mutex);
    const auto entry = find(number, sequence);
    if (entry == m_entries.end() || entry->second.settled)
        return;
    Partition& partition = m_partitions[entry->second.partition];
    if (partition.firstDropped == 0 || sequence < partition.firstDropped)
        partition.firstDropped = sequence;
    leave(entry);
}

void NatsLedger::forget(unsigned number, std::uint64_t sequence) {
    const Lock lock(m_mutex);
    if (const auto entry = find(number, sequence);
        entry != m_entries.end() && !entry->second.settled)
        leave(entry);
}

void NatsLedger::leave(Entries::iterator entry) {
    --m_partitions[entry->second.partition].unsettled;
    const std::uint64_t subject = entry->first.first;
    for (entry = erase(entry); entry != m_entries.end() && entry->first.first == subject;) {
        entry->second.stays = true;
        entry = entry->second.settled ? erase(entry) : std::next(entry);
    }
}

std::uint64_t NatsLedger::takeFirstDropped(unsigned partition) {
    const Lock lock(m_mutex);
    return std::exchange(m_partitions[partition].firstDropped, 0);
}

void NatsLedger::wakeReader(unsigned partition) {
    const Lock lock(m_mutex);
    m_partitions[partition].readerWaits = true;
}

std::size_t NatsLedger::unsettled(unsigned partition) const {
    const Lock lock(m_mutex);
    const auto found = m_partitions.find(partition);
    return found == m_partitions.end() ? 0 : found->second.unsettled;
}

std::vector<std::string> NatsLedger::silentFor(Clock::duration silence) {
    std::vector<std::string> result;
    const Clock::time_point now = Clock::now();
    const Lock lock(m_mutex);
    for (auto& [place, entry] : m_entries) {
        if (now - entry.heardAbout < silence)
            continue;
        entry.heardAbout = now;
        result.push_back(entry.acknowledgeTo);
    }
    return result;
}

NatsLedger::Entries::iterator NatsLedger::find(unsigned partition, std::uint64_t sequence) {
    const auto subject = m_subjects.find(std::pair(partition, sequence));
    return subject == m_subjects.end() ? m_entries.end()
                                       : m_entries.find(Place(subject->second, sequence));
}

NatsLedger::Entries::iterator NatsLedger::erase(Entries::iterator entry) {
    m_subjects.erase(std::pair(entry->second.partition, entry->first.second));
    return m_entries.erase(entry);
}

} // namespace mirel
