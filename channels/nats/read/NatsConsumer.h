#pragma once

#include "channels/nats/read/NatsChannelOptions.h"

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace mirel {

class NatsConnection;

/// While it has nothing to deliver, the server says so. A reader that hears nothing for a few of
/// these has lost its consumer.
constexpr std::chrono::milliseconds kHeartbeat{1000};

/// The server's part of reading one partition: what has been delivered and acknowledged. It is
/// never resumed. What its reader had in work when it died would be delivered only when its time is
/// up, behind messages that were sent later, and a reader that was only paused would take messages
/// away from its successor. A new one delivers what is not acknowledged, from the beginning, in the
/// order of the stream.
///
/// Used by one thread.
class NatsConsumer {
public:
    /// Of no use until renewed. The connection must outlive it.
    NatsConsumer(NatsConnection& connection, const NatsChannelOptions& options, unsigned partition);

    /// Deletes the consumers that the partition has and makes one. `NatsError`; to be called again
    /// then.
    void renew();

    /// Asks for `batch` messages, which are delivered to the subject as they come.
    void pull(std::size_t batch, const std::string& deliverTo);

    /// Deletes it: nobody's delivery is in doubt. False when the server does not answer.
    bool remove() noexcept;

    /// Of a stream that is not there any more.
    void forgetDoubt() { m_inDoubt = 0; }

    const std::string& name() const { return m_name; }

    /// The last message that was delivered to another process and was not acknowledged when that
    /// process lost the partition: it may have died of that message, or of one before. 0: none.
    std::uint64_t inDoubt() const { return m_inDoubt; }

private:
    std::vector<std::string> all();
    void removeFormer(const std::string& name);
    void awaitAcknowledgements();
    nlohmann::json call(const char* what, const std::string& name);

    NatsConnection& m_connection;
    const NatsChannelOptions& m_options;
    const unsigned m_partition;
    const std::string m_prefix; ///< of the names of all consumers of the partition
    std::string m_name;
    std::uint64_t m_inDoubt = 0;
};

} // namespace mirel
