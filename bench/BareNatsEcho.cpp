#include "bench/NatsEcho.h"
#include "channels/nats/read/NatsConsumer.h"
#include "channels/nats/wire/NatsConnection.h"
#include "channels/nats/wire/NatsHandles.h"
#include "channels/nats/wire/NatsInbox.h"
#include "channels/nats/wire/NatsStream.h"

#include <charconv>
#include <deque>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace bench {

namespace {

constexpr std::int64_t kPatienceMs = 5000;
constexpr const char* kCaller = "bare"; ///< there is one only
constexpr const char* kAnswer = "answer";

// What the engine says about a pull.
constexpr std::string_view kHeartbeat = "100";
constexpr std::string_view kTimeOut = "408";

void require(natsStatus status, const char* what) {
    if (status != NATS_OK)
        throw std::runtime_error(std::string(what) + ": " + natsStatus_GetText(status));
}

std::string_view contentOf(natsMsg* msg) {
    return {natsMsg_GetData(msg), static_cast<std::size_t>(natsMsg_GetDataLength(msg))};
}

mirel::NatsSubscription subscribe(mirel::NatsConnection& connection, const std::string& subject) {
    natsSubscription* made = nullptr;
    require(natsConnection_SubscribeSync(&made, connection.get(), subject.c_str()), "subscribe");
    natsSubscription_SetPendingLimits(made, -1, -1);
    return mirel::NatsSubscription(made);
}

/// Answers SERVICE.requests.0.CALLER to SERVICE.answers.CALLER.answer.
class BareService : public EchoService {
public:
    explicit BareService(const mirel::NatsChannelOptions& options)
        : m_options(options),
          m_connection(m_options.connection),
          m_inbox(mirel::newInbox() + "pull"),
          m_consumer(m_connection, m_options, 0) {
        mirel::provideStream(m_connection, m_options.stream, m_options.connection);
        m_consumer.renew();
        m_subscription = subscribe(m_connection, m_inbox);
        m_thread = std::thread([this] { echo(); });
    }

    ~BareService() override {
        natsSubscription_Unsubscribe(m_subscription.get());
        m_thread.join();
    }

private:
    void echo() {
        std::size_t expected = 0;
        for (;;) {
            if (expected == 0) {
                expected = m_options.maxUnacknowledged;
                m_consumer.pull(expected, m_inbox);
            }
            natsMsg* msg = nullptr;
            if (natsSubscription_NextMsg(&msg, m_subscription.get(), kPatienceMs) != NATS_OK)
                return; // the end: otherwise heartbeats come
            const mirel::NatsMessage owned(msg);
            if (natsMsg_GetReply(msg)) {
                answer(msg);
                --expected;
            } else if (endsPull(msg)) {
                expected = 0;
            }
        }
    }

    static bool endsPull(natsMsg* msg) {
        const char* status = "";
        natsMsgHeader_Get(msg, "Status", &status);
        if (status != kHeartbeat && status != kTimeOut)
            throw std::runtime_error(std::string("the engine says ") + status);
        return status == kTimeOut;
    }

    void answer(natsMsg* msg) {
        const std::string_view subject = natsMsg_GetSubject(msg);
        const std::string to =
            m_answers + std::string(subject.substr(subject.rfind('.') + 1)) + '.' + kAnswer;
        require(natsConnection_Publish(m_connection.get(), to.c_str(), natsMsg_GetData(msg),
                                       natsMsg_GetDataLength(msg)),
                "an answer");
        require(natsConnection_PublishString(m_connection.get(), natsMsg_GetReply(msg), "+ACK"),
                "an acknowledgement");
    }

    const mirel::NatsChannelOptions m_options;
    mirel::NatsConnection m_connection;
    const std::string m_inbox;
    const std::string m_answers = m_connection.address().answers("");
    mirel::NatsConsumer m_consumer;
    mirel::NatsSubscription m_subscription;
    std::thread m_thread;
};

/// Confirmations come to SERVICE.answers.CALLER.SOURCE, so that one thread can wait for both, them
/// and the answers.
class BareCaller : public EchoCaller {
public:
    BareCaller(const mirel::NatsConnectionOptions& options, int requests, int sources)
        : m_connection(options),
          m_sources(static_cast<std::size_t>(sources)) {
        for (std::size_t number = 0; number < static_cast<std::size_t>(requests); ++number)
            m_requests.push_back(dataOf(number));
        for (std::size_t source = 0; source < m_sources.size(); ++source)
            m_sources[source].confirmTo = m_prefix + std::to_string(source);
        m_subscription = subscribe(m_connection, m_prefix + "*");
    }

    void send(std::size_t number) override {
        Source& source = m_sources.at(number % m_sources.size());
        source.waiting.push_back(number);
        if (source.waiting.size() == 1)
            transmit(source);
    }

    std::size_t receive() override {
        for (;;) {
            natsMsg* msg = nullptr;
            require(natsSubscription_NextMsg(&msg, m_subscription.get(), kPatienceMs),
                    "the bare echo does not answer");
            const mirel::NatsMessage owned(msg);
            const std::string_view subject = natsMsg_GetSubject(msg);
            const std::string_view kind = subject.substr(m_prefix.size());
            if (kind == kAnswer)
                return numberOf(contentOf(msg));
            confirm(kind, contentOf(msg));
        }
    }

private:
    struct Source {
        std::string confirmTo;
        std::deque<std::size_t> waiting; ///< the first is on its way into the stream
    };

    void confirm(std::string_view name, std::string_view text) {
        if (text.find("\"seq\"") == text.npos)
            throw std::runtime_error("the engine takes no request: " + std::string(text));
        std::size_t number = 0;
        std::from_chars(name.data(), name.data() + name.size(), number);
        Source& source = m_sources.at(number);
        source.waiting.pop_front();
        if (!source.waiting.empty())
            transmit(source);
    }

    void transmit(const Source& source) {
        const std::string& data = m_requests.at(source.waiting.front());
        natsMsg* made = nullptr;
        require(natsMsg_Create(&made, m_subject.c_str(), source.confirmTo.c_str(), data.data(),
                               static_cast<int>(data.size())),
                "a request");
        const mirel::NatsMessage owned(made);
        require(natsMsgHeader_Set(made, "Nats-Msg-Id", std::to_string(++m_lastId).c_str()),
                "a request's id");
        require(natsConnection_PublishMsg(m_connection.get(), made), "a request");
    }

    mirel::NatsConnection m_connection;
    const std::string m_subject = m_connection.address().requests(0, kCaller, kCaller, kCaller);
    const std::string m_prefix = m_connection.address().answers(kCaller) + ".";
    std::vector<std::string> m_requests;
    std::vector<Source> m_sources;
    mirel::NatsSubscription m_subscription;
    unsigned long m_lastId = 0;
};

} // namespace

std::unique_ptr<EchoService> serveBareNatsEcho(const std::string& url) {
    return std::make_unique<BareService>(natsEchoOptions(url));
}

std::unique_ptr<EchoCaller> callBareNatsEcho(const std::string& url, int requests, int sources) {
    return std::make_unique<BareCaller>(natsEchoOptions(url).connection, requests, sources);
}

} // namespace bench
