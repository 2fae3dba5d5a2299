// Frames that a caller sends to a live service; another caller is served all the same.

#include "ServiceExecutor.h"
#include "channels/ChannelCounters.h"
#include "channels/Envelope.h"
#include "channels/FlowLimit.h"
#include "channels/LimitedPool.h"
#include "channels/zmq/ZmqChannel.h"
#include "framework/Service.h"
#include "framework/Threader.h"
#include "runtime/reports/LogControl.h"
#include "runtime/values/ServiceContext.h"
#include "tests/fuzz/Require.h"

#include <cerrno>
#include <cstdint>
#include <fuzzer/FuzzedDataProvider.h>
#include <vector>
#include <zmq.hpp>

namespace mirel {
namespace {

constexpr std::size_t kLimit = 1000;
constexpr std::size_t kHardLimit = 4 * kLimit; ///< ZeroMQ disconnects beyond it
constexpr int kPatience = 20'000;              ///< milliseconds, for what must happen

/// Answers with the request's data.
class EchoService : public Service {
public:
    void timerEvent(int) override {}
    void handleMessage(const char*, int, std::string, CommsChannelIfc*,
                       CommsChannelDataContainerMessage&) override {}
};

class Host {
public:
    Host() {
        setLogLevels("2"); // a refusal is no news here
        m_context.addHandler<EchoService>(
            "Echo", "text", [](EchoService&, std::string_view data) { return std::string(data); });
        ZmqChannelOptions options;
        options.url = "tcp://127.0.0.1:0";
        options.maxMessageBytes = kLimit;
        auto channel = std::make_unique<ZmqChannel>(options);
        channel->limitBy(m_limit);
        m_url = channel->url();
        m_executor = std::make_unique<ServiceExecutor>(&m_service, channel.release(), "Echo",
                                                       &m_context, &m_pool, nullptr, true);
        unsigned long threadId = 0;
        m_executor->startThread(m_threader, threadId);
    }

    const std::string& url() const { return m_url; }

private:
    const std::shared_ptr<FlowLimit> m_limit = std::make_shared<FlowLimit>(100);
    ServiceContext m_context;
    EchoService m_service;
    LimitedPool m_pool{4, nullptr, m_limit};
    Threader m_threader;
    std::string m_url;
    std::unique_ptr<ServiceExecutor> m_executor;
};

/// The fuzzer's own alarm interrupts ZeroMQ.
template <typename Call>
auto uninterrupted(Call call) {
    for (;;) {
        try {
            return call();
        } catch (const zmq::error_t& failure) {
            if (failure.num() != EINTR)
                throw;
        }
    }
}

class RawCaller {
public:
    /// `id` empty: one that ZeroMQ chooses.
    RawCaller(zmq::context_t& context, const std::string& url, const std::string& id)
        : m_socket(context, zmq::socket_type::dealer) {
        m_socket.set(zmq::sockopt::linger, 0);
        m_socket.set(zmq::sockopt::rcvtimeo, kPatience);
        m_socket.set(zmq::sockopt::sndtimeo, kPatience);
        if (!id.empty())
            m_socket.set(zmq::sockopt::routing_id, id);
        m_socket.connect(url);
    }

    void send(std::string_view frame, bool more) {
        const auto flags = more ? zmq::send_flags::sndmore : zmq::send_flags::none;
        require(uninterrupted([&] { return m_socket.send(zmq::buffer(frame), flags); }).has_value(),
                "the service takes frames");
    }

    /// Answers to other requests may come first.
    void expectEcho() {
        CommsChannelDataContainerMessage request;
        request.setRequestId(++m_requests);
        request.sourceChannel() = "own";
        request.interface() = "Echo";
        request.protocol() = "text";
        request.setData("whole " + std::to_string(m_requests));
        send(encode(request), false);
        for (;;) {
            zmq::message_t bytes;
            require(uninterrupted([&] { return m_socket.recv(bytes); }).has_value(),
                    "the service answers");
            const Answer answer = decodeAnswer(bytes.to_string_view());
            if (answer.sourceChannel == "own" && answer.requestId == m_requests &&
                answer.data == request.getData())
                return;
        }
    }

private:
    zmq::socket_t m_socket;
    long m_requests = 1L << 30;
};

/// Those that live as long as the process.
struct World {
    Host host;
    zmq::context_t context;
    RawCaller good{context, host.url(), "good"};
};

void attack(FuzzedDataProvider input) {
    static World& world = *new World;
    std::string id = input.ConsumeRandomLengthString(10);
    if (!id.empty() && id.front() == '\0') // ZeroMQ keeps those for itself
        id.front() = 'x';
    // ZeroMQ lets in only the first one of a name, as long as that is there.
    const bool isThief = id == "good";
    static unsigned long callers = 0;
    if (!id.empty() && !isThief)
        id += std::to_string(++callers);
    RawCaller caller(world.context, world.host.url(), id);
    bool isDisconnected = false;
    bool more = false;
    while (input.remaining_bytes() > 0) {
        more = input.ConsumeBool();
        std::string frame = input.ConsumeRandomLengthString();
        if (input.ConsumeIntegralInRange(0, 50) == 50)
            frame.resize(input.ConsumeIntegralInRange<std::size_t>(0, 2 * kHardLimit), '\xc0');
        isDisconnected = isDisconnected || frame.size() > kHardLimit;
        caller.send(frame, more);
    }
    if (more)
        caller.send("", false);
    if (!isThief && !isDisconnected)
        caller.expectEcho(); // so everything before it has been dealt with
    world.good.expectEcho();
}

} // namespace
} // namespace mirel

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    mirel::attack(FuzzedDataProvider(data, size));
    return 0;
}
