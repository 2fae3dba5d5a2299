// A request of 64 bytes through NATS JetStream to another process and its answer: through the
// channel, a service executor and its workers, against a bare loop on the NATS library. One in
// flight, saturated, and saturated on three servers that keep three copies.
//
// The bare loop has the channel's connection, stream and consumer, and one thread at each end that
// does as little as can be done with them. Requests have ids, and one of each source at a time is
// on its way into the stream. Answers are not confirmed, and nothing is repeated.

#include "bench/Echo.h"
#include "channels/nats/publish/NatsCaller.h"
#include "channels/nats/read/NatsChannel.h"
#include "channels/nats/read/NatsConsumer.h"
#include "channels/nats/wire/NatsAddress.h"
#include "channels/nats/wire/NatsConnection.h"
#include "channels/nats/wire/NatsHandles.h"
#include "channels/nats/wire/NatsStream.h"
#include "testkit/NatsCluster.h"
#include "testkit/TemporaryFolder.h"

#include <array>
#include <charconv>
#include <deque>
#include <stdexcept>
#include <thread>

namespace {

using namespace bench;

constexpr int kWindow = 256;
constexpr std::int64_t kPatienceMs = 5000;
constexpr const char* kCaller = "bare"; ///< there is one only
constexpr const char* kAnswer = "answer";

// What the server says about a pull.
constexpr std::string_view kHeartbeat = "100";
constexpr std::string_view kTimeOut = "408";

void require(natsStatus status, const char* what) {
    if (status != NATS_OK)
        throw std::runtime_error(std::string(what) + ": " + natsStatus_GetText(status));
}

mirel::NatsSubscription subscribe(mirel::NatsConnection& connection, const std::string& subject) {
    natsSubscription* made = nullptr;
    require(natsConnection_SubscribeSync(&made, connection.get(), subject.c_str()), "subscribe");
    natsSubscription_SetPendingLimits(made, -1, -1);
    return mirel::NatsSubscription(made);
}

/// Answers SERVICE.requests.0.CALLER.CALLER.CALLER.CALLER to SERVICE.answers.CALLER.answer.
class BareService {
public:
    explicit BareService(const mirel::NatsChannelOptions& options)
        : m_options(options),
          m_connection(m_options.connection),
          m_inbox(m_connection.newInbox() + "pull"),
          m_consumer(m_connection, m_options, 0) {
        mirel::provideStream(m_connection, m_options.stream, m_options.connection);
        m_consumer.renew();
        m_subscription = subscribe(m_connection, m_inbox);
        m_thread = std::thread([this] { echo(); });
    }

    ~BareService() {
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
            const char* status = "";
            if (natsMsg_GetReply(msg)) {
                answer(msg);
                --expected;
            } else if (natsMsgHeader_Get(msg, "Status", &status); status == kTimeOut) {
                expected = 0;
            } else if (status != kHeartbeat) {
                throw std::runtime_error(std::string("the server says ") + status);
            }
        }
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
          m_requests(dataOf(requests)),
          m_sources(static_cast<std::size_t>(sources)) {
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
                return numberOf(mirel::bytesOf(msg));
            confirm(kind, mirel::bytesOf(msg));
        }
    }

private:
    struct Source {
        std::string confirmTo;
        std::deque<std::size_t> waiting; ///< the first is on its way into the stream
    };

    void confirm(std::string_view name, std::string_view text) {
        if (text.find("\"seq\"") == text.npos)
            throw std::runtime_error("the server takes no request: " + std::string(text));
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
    const std::string m_subject = m_connection.address().requests(
        0, mirel::NatsAddress::caller(kCaller, kCaller), kCaller, kCaller);
    const std::string m_prefix = m_connection.address().answers(kCaller) + ".";
    const std::vector<std::string> m_requests;
    std::vector<Source> m_sources;
    mirel::NatsSubscription m_subscription;
    unsigned long m_lastId = 0;
};

/// What both services are served with: one partition, and a copy of each request on each server of
/// the address.
mirel::NatsChannelOptions optionsFor(const std::string& url) {
    mirel::NatsChannelOptions options;
    options.connection.url = url;
    options.stream.replicas = static_cast<int>(mirel::NatsAddress(url).servers().size());
    return options;
}

EchoService serveMirel(const std::string& url) {
    return serveMirelEcho(std::make_unique<mirel::NatsChannel>(optionsFor(url)));
}

std::unique_ptr<EchoCaller> callMirel(const std::string& url, int requests, int sources) {
    mirel::NatsCallerOptions options;
    options.connection = optionsFor(url).connection;
    return callMirelEcho(std::make_unique<mirel::NatsCaller>(options), requests, sources);
}

EchoService serveBare(const std::string& url) {
    return std::make_shared<BareService>(optionsFor(url));
}

std::unique_ptr<EchoCaller> callBare(const std::string& url, int requests, int sources) {
    return std::make_unique<BareCaller>(optionsFor(url).connection, requests, sources);
}

constexpr std::array<Echo, 2> kEchoes{{
    {"mirel", &serveMirel, &callMirel},
    {"bare", &serveBare, &callBare},
}};

void add(const std::string& cell, std::size_t servers, int window, int sources) {
    for (const Echo& echo : kEchoes)
        addBenchmark(cell + std::string(echo.name), [=, &echo](benchmark::State& state) {
            const mirel::TemporaryFolder folder;
            const mirel::NatsCluster cluster(folder.path("cluster"), servers);
            cluster.waitUntilReady();
            measureEcho(state, echo, cluster.url("echo"), window, sources);
        });
}

} // namespace

int main(int argc, char** argv) {
    return runEchoProgram(argc, argv, kEchoes, [] {
        add("nats/closed/", 1, 1, 1);
        for (const int sources : {8, 64})
            add("nats/saturated/" + std::to_string(sources) + "/", 1, kWindow, sources);
        add("nats/replicated/64/", 3, kWindow, 64);
    });
}
