#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace mirel {

/// The messages that were delivered to this process and are not acknowledged yet. Any thread.
class NatsLedger {
public:
    using Clock = std::chrono::steady_clock;

    void add(unsigned partition, std::uint64_t sequence, std::string acknowledgeTo);

    /// Called after the acknowledgement has been sent, so that none is on its way once nothing is
    /// left. True when the partition's reader wants to be woken.
    bool remove(std::uint64_t sequence);

    /// Instead of `remove`, for a message that was handed out and has not been run.
    void drop(std::uint64_t sequence);

    /// The first message of the partition that was dropped since the last time; 0: none was.
    std::uint64_t takeFirstDropped(unsigned partition);

    /// Makes the next `remove` of one of the partition return true.
    void wakeReader(unsigned partition);

    /// How many of the partition are not acknowledged.
    std::size_t unsettled(unsigned partition) const;

    /// What the messages are acknowledged by that the engine has heard nothing about for `silence`;
    /// they count as heard about now.
    std::vector<std::string> silentFor(Clock::duration silence);

private:
    struct Partition {
        std::size_t unsettled = 0;
        std::uint64_t firstDropped = 0;
        bool readerWaits = false;
    };

    struct Entry {
        unsigned partition;
        std::string acknowledgeTo;
        Clock::time_point heardAbout;
    };

    // Guarded by m_mutex.
    mutable std::mutex m_mutex;
    std::map<std::uint64_t, Entry> m_entries; ///< by the sequence in the stream
    std::map<unsigned, Partition> m_partitions;
};

} // namespace mirel
