#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace mirel {

/// Which messages of a caller are to be sent when. A source is all that the caller sends under one
/// source channel. One message of each source is on its way at a time, and is repeated until the
/// server has confirmed it, so that the stream has them in the order in which they were added. What
/// is kept does not depend on how often a message is repeated. Used by one thread at a time.
class NatsSendWindow {
public:
    using Time = std::chrono::steady_clock::time_point;

    struct Message {
        std::string source;
        std::string subject;
        std::string id; ///< by which the server knows a repeated message
        std::string bytes;
    };

    /// A message that is to be sent now. Its confirmation comes to `replyTo`, which is the same for
    /// its repetitions.
    struct Transmission {
        std::shared_ptr<const Message> message;
        std::string replyTo;
    };

    /// Has room for `most` messages. `inbox` is the beginning of the subjects for confirmations.
    NatsSendWindow(std::size_t most, std::string inbox);

    bool full() const { return m_unconfirmed >= m_most; }
    std::size_t unconfirmed() const { return m_unconfirmed; }

    /// Nothing is to be sent when the message waits for another one of its source.
    std::optional<Transmission> add(Message message, Time now);

    /// The server has stored the message of that confirmation, or had done so before. The next one
    /// of the source, if there is one. A late confirmation of the former message does nothing.
    std::optional<Transmission> confirmed(const std::string& replyTo, Time now);

    /// The server does not take the message now; it is overdue a little later, each time it is
    /// refused twice as late, up to half a second.
    void refused(const std::string& replyTo, Time now);

    /// What has waited too long for its confirmation, or all that waits for one.
    std::vector<Transmission> overdue(Time now);
    std::vector<Transmission> all(Time now);

private:
    struct Source {
        std::deque<std::shared_ptr<const Message>>
            messages;        ///< the first is on its way; never empty
        std::string replyTo; ///< of the first
        Time overdueAt;
        Time::duration pause; ///< after the next refusal of the first
    };

    Transmission first(Source& source, Time now);

    const std::size_t m_most;
    const std::string m_inbox;
    std::size_t m_unconfirmed = 0;
    unsigned long m_lastReplyTo = 0;
    std::unordered_map<std::string, Source> m_sources;        ///< those that have messages
    std::unordered_map<std::string, std::string> m_awaitedBy; ///< replyTo to source
};

} // namespace mirel
