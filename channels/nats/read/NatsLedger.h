#pragma once

#include "runtime/threads/Mutex.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace mirel {

/// The messages that were delivered to this process and are not acknowledged yet. Any thread.
///
/// Those of one subject are acknowledged in the order in which they were delivered, because the
/// server needs it: nats-server 2.9.10 keeps the first and the last message of each subject, and
/// does not correct the last one when that is removed. When one message is left in the end, it
/// takes that removed one for it, and no new consumer finds the message that is there. (An
/// acknowledgement that is lost with a connection may leave one invisible; it has run.)
class NatsLedger {
public:
    using Clock = std::chrono::steady_clock;

    /// `acknowledge(to, how)` hands over an acknowledgement to be sent, and must not wait for that:
    /// it is called with the ledger locked, so that those of a subject are handed over in their
    /// order.
    using Acknowledge = std::function<void(const std::string& to, const char* how)>;
    explicit NatsLedger(Acknowledge acknowledge);

    /// `subject` is a number that stands for the message's subject.
    void add(unsigned partition, std::uint64_t subject, std::uint64_t sequence,
             std::string acknowledgeTo);

    /// The message is done with: acknowledged as `how` says, now or behind those before it. True
    /// when the partition's reader wants to be woken.
    bool settle(unsigned partition, std::uint64_t sequence, const char* how);

    /// Instead of `settle`, for a message that was handed out and has not been run. It stays in the
    /// stream, and with it all that was delivered of its subject behind it.
    void drop(unsigned partition, std::uint64_t sequence);

    /// The same for one that was not handed out.
    void forget(unsigned partition, std::uint64_t sequence);

    /// The first message of the partition that was dropped since the last time; 0: none was.
    std::uint64_t takeFirstDropped(unsigned partition);

    /// Makes the next `settle` of one of the partition return true.
    void wakeReader(unsigned partition);

    /// How many of the partition are neither settled nor dropped. Once there are none, all its
    /// acknowledgements have been handed over.
    std::size_t unsettled(unsigned partition) const;

    /// What the messages are acknowledged by that the server has heard nothing about for `silence`;
    /// they count as heard about now.
    std::vector<std::string> silentFor(Clock::duration silence);

private:
    struct Partition {
        std::size_t unsettled = 0;
        std::uint64_t firstDropped = 0;
        bool readerWaits = false;
    };

    using Place = std::pair<std::uint64_t, std::uint64_t>; ///< subject, sequence in the stream

    struct Entry {
        unsigned partition;
        std::string acknowledgeTo;
        Clock::time_point heardAbout;
        const char* settled = nullptr; ///< how, if it only waits for those before it
        bool stays = false;            ///< in the stream, because one before it does
    };

    using Entries = std::map<Place, Entry>;

    Entries::iterator find(unsigned partition, std::uint64_t sequence) MIREL_REQUIRES(m_mutex);
    Entries::iterator erase(Entries::iterator entry) MIREL_REQUIRES(m_mutex);
    void leave(Entries::iterator entry) MIREL_REQUIRES(m_mutex);
    void acknowledgeFirst(std::uint64_t subject) MIREL_REQUIRES(m_mutex);

    const Acknowledge m_acknowledge;

    mutable Mutex m_mutex;
    Entries m_entries MIREL_GUARDED_BY(m_mutex);
    /// By partition and sequence. A stream that is made anew may have a sequence in another
    /// partition.
    std::map<std::pair<unsigned, std::uint64_t>, std::uint64_t>
        m_subjects MIREL_GUARDED_BY(m_mutex);
    std::map<unsigned, Partition> m_partitions MIREL_GUARDED_BY(m_mutex);
};

} // namespace mirel
