#include "channels/nats/read/NatsConsumer.h"

#include "channels/RandomName.h"
#include "channels/nats/wire/NatsConnection.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

namespace mirel {

namespace {

using nlohmann::json;

constexpr std::chrono::milliseconds kCallPatience{2000};
constexpr std::chrono::seconds kPullExpires{10};
constexpr int kConsumerNotFound = 10014;
constexpr int kMostLooks = 20;

} // namespace

NatsConsumer::NatsConsumer(NatsConnection& connection, const NatsChannelOptions& options,
                           unsigned partition)
    : m_connection(connection),
      m_options(options),
      m_partition(partition),
      m_prefix("p" + std::to_string(partition) + "-") {}

void NatsConsumer::renew() {
    for (const std::string& name : all())
        removeFormer(name);
    const NatsAddress& address = m_connection.address();
    const std::string name = m_prefix + randomName(); // no other process takes it for its own
    m_connection.call(
        "CONSUMER.DURABLE.CREATE." + address.stream() + "." + name,
        {{"stream_name", address.stream()},
         {"config",
          {{"durable_name", name},
           {"deliver_policy", "all"},
           {"ack_policy", "explicit"},
           {"ack_wait", std::chrono::nanoseconds(m_options.acknowledgeWithin).count()},
           {"max_ack_pending", m_options.maxUnacknowledged},
           {"filter_subject", address.requests(m_partition)},
           {"replay_policy", "instant"}}}},
        kCallPatience);
    m_name = name;
}

void NatsConsumer::pull(std::size_t batch, const std::string& deliverTo) {
    const json request{{"batch", batch},
                       {"expires", std::chrono::nanoseconds(kPullExpires).count()},
                       {"idle_heartbeat", std::chrono::nanoseconds(kHeartbeat).count()}};
    m_connection.publish("$JS.API.CONSUMER.MSG.NEXT." + m_connection.address().stream() + "." +
                             m_name,
                         request.dump(), deliverTo);
}

std::vector<std::string> NatsConsumer::all() {
    std::set<std::string> names;
    for (std::size_t total = 1, read = 0; read < total;) {
        const json page = m_connection.call("CONSUMER.NAMES." + m_connection.address().stream(),
                                            {{"offset", read}}, kCallPatience);
        const json& consumers = page.at("consumers");
        for (const std::string name : consumers)
            if (name.starts_with(m_prefix))
                names.insert(name);
        total = page.at("total");
        read += std::max<std::size_t>(1, consumers.size());
    }
    return {names.begin(), names.end()};
}

void NatsConsumer::removeFormer(const std::string& name) {
    const json info = call("INFO", name);
    if (info.is_null())
        return;
    // Its own former one leaves no doubt: this process has not died.
    if (name != m_name && info.value("num_ack_pending", 0) > 0)
        m_inDoubt = std::max<std::uint64_t>(
            m_inDoubt, info.at("delivered").value("stream_seq", std::uint64_t{0}));
    call("DELETE", name);
}

bool NatsConsumer::remove() noexcept {
    try {
        if (m_name.empty())
            return true;
        awaitAcknowledgements();
        call("DELETE", m_name);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

/// The server takes them when it finds the time, and those that it has not taken when the consumer
/// is deleted are lost. What was delivered and is not acknowledged stays pending: once the number
/// does not fall any more, they have been taken.
void NatsConsumer::awaitAcknowledgements() {
    for (int look = 0, before = -1; look < kMostLooks; ++look) {
        const json info = call("INFO", m_name);
        const int pending = info.is_null() ? 0 : info.value("num_ack_pending", 0);
        if (pending == 0 || pending == before)
            return;
        before = pending;
    }
}

/// Nothing when there is no such consumer.
json NatsConsumer::call(const char* what, const std::string& name) {
    try {
        return m_connection.call(std::string("CONSUMER.") + what + "." +
                                     m_connection.address().stream() + "." + name,
                                 nullptr, kCallPatience);
    } catch (const NatsError& failure) {
        if (failure.code() != kConsumerNotFound)
            throw;
        return nullptr;
    }
}

} // namespace mirel
