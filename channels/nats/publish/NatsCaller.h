#pragma once

#include "channels/Caller.h"
#include "channels/nats/publish/NatsAnswerOrder.h"
#include "channels/nats/publish/NatsCallerOptions.h"
#include "channels/nats/wire/NatsHandles.h"
#include "channels/nats/wire/NatsStream.h"

#include <map>
#include <memory>
#include <string>

namespace mirel {

class NatsConnection;
class NatsMessageIds;
class NatsPublisher;

/// A caller of a service whose requests are kept by NATS JetStream. What `send` has taken is
/// brought into the service's stream in the order of its source (what has one source channel),
/// however often the connection or a server is lost, as long as the caller lives.
class NatsCaller : public Caller {
public:
    /// Connects. `MirelException` with one clear text when there is no server or no such service
    /// within the patience.
    explicit NatsCaller(const NatsCallerOptions& options);

    /// Waits a bounded time until the server has what `send` has taken.
    ~NatsCaller() override;

    bool send(CommsChannelDataContainerMessage& msg, std::chrono::milliseconds patience) override;
    std::optional<Answer> receive(std::chrono::milliseconds patience) override;

    CallerShare share() const override;

    /// Whether a server is there; a service may be not.
    bool connected() override;

    unsigned long skipped() const override { return m_skipped; }

private:
    void take(natsMsg* msg);
    void confirmLater(std::string_view confirmTo);
    void confirmTaken();
    std::string idOf(CommsChannelDataContainerMessage& msg);
    void checkConnection();

    const NatsCallerOptions m_options;
    const std::string m_name; ///< USER.NAME, see NatsAddress
    const std::string m_run;  ///< tells this process from others of the same name
    const std::unique_ptr<const NatsMessageIds> m_ids;
    unsigned long m_unanswerable = 0; ///< timer events and legacy messages so far
    const std::unique_ptr<NatsConnection> m_connection;
    NatsService m_service;
    NatsSubscription m_answers;
    NatsAnswerOrder m_order;
    std::map<std::string, std::string> m_toConfirm; ///< numbers of answers, by where to tell them
    std::size_t m_unconfirmed = 0;                  ///< numbers in there
    unsigned long m_skipped = 0;
    std::unique_ptr<NatsPublisher> m_publisher;
};

} // namespace mirel
