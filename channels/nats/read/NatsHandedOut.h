#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>

namespace mirel {

/// Which messages of a partition have been handed out in this process, so that one that is
/// delivered or stored once more does not run again. Messages are handed out in the order of the
/// stream. Used by one thread.
class NatsHandedOut {
public:
    struct Message {
        std::uint64_t sequence; ///< in the stream
        std::uint64_t stored;   ///< when, by the server's clock
        std::string from;       ///< the caller's process, and the source
        std::string id;         ///< that the caller gave it; empty: none
    };

    void add(const Message& message);

    /// Whether that message of the stream has been handed out.
    ///
    /// Its number alone does not tell: a server that was killed while its stream was empty may
    /// count on from a number that it had passed long before (nats-server 2.9.10). What it stores
    /// under a number for the second time is stored later than what we have seen.
    bool contains(std::uint64_t sequence, std::uint64_t stored) const {
        return sequence <= m_last && stored <= m_lastStored;
    }

    /// Whether the message is a second copy of the one that was handed out before it.
    ///
    /// A server that was killed knows the ids of those messages only that it still holds, and
    /// stores one again whose caller has not heard of the first time. Since a caller has one
    /// message of a source on its way, that one follows the first directly among those of both.
    bool isCopy(const Message& message) const;

    /// That message and those behind it have been handed out and not run: they are to be handed out
    /// again.
    void takeBack(std::uint64_t sequence);

    /// The stream is another one.
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    /// The last message of one caller's process and one source.
    struct Last {
        std::string id;
        std::uint64_t stored;
        Clock::time_point at;
    };

    std::uint64_t m_last = 0;       ///< sequence
    std::uint64_t m_lastStored = 0; ///< the latest time
    std::size_t m_sweepAt = 0;
    std::unordered_map<std::string, Last> m_lastOf; ///< by `Message::from`
};

} // namespace mirel
