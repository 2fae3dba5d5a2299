// A request of 64 bytes to another process over ipc:// and its answer: through the channel, a
// service executor and its workers, against a bare ZeroMQ echo. One in flight, and saturated.

#include "bench/Echo.h"
#include "channels/zmq/ZmqCaller.h"
#include "channels/zmq/ZmqChannel.h"
#include "testkit/TemporaryFolder.h"

#include <array>
#include <stdexcept>
#include <thread>
#include <zmq.hpp>

namespace {

using namespace bench;

constexpr int kPatienceMs = 5000;

/// As little as ZeroMQ can do it with: a ROUTER that sends back.
class BareService {
public:
    explicit BareService(const std::string& url) : m_socket(m_context, zmq::socket_type::router) {
        m_socket.bind(url);
        m_thread = std::thread([this] { echo(); });
    }

    ~BareService() {
        m_context.shutdown();
        m_thread.join();
    }

private:
    void echo() {
        zmq::message_t caller;
        zmq::message_t body;
        try {
            for (;;) {
                static_cast<void>(m_socket.recv(caller));
                static_cast<void>(m_socket.recv(body));
                m_socket.send(caller, zmq::send_flags::sndmore);
                m_socket.send(body, zmq::send_flags::none);
            }
        } catch (const zmq::error_t& end) {
            if (end.num() != ETERM)
                throw;
        }
    }

    zmq::context_t m_context;
    zmq::socket_t m_socket;
    std::thread m_thread;
};

/// A DEALER. Knows no sources.
class BareCaller : public EchoCaller {
public:
    BareCaller(const std::string& url, int requests)
        : m_socket(m_context, zmq::socket_type::dealer),
          m_requests(dataOf(requests)) {
        m_socket.set(zmq::sockopt::rcvtimeo, kPatienceMs);
        m_socket.set(zmq::sockopt::linger, 0);
        m_socket.connect(url);
    }

    void send(std::size_t number) override {
        m_socket.send(zmq::buffer(m_requests.at(number)), zmq::send_flags::none);
    }

    std::size_t receive() override {
        if (!m_socket.recv(m_answer))
            throw std::runtime_error("the bare echo does not answer");
        return numberOf(m_answer.to_string_view());
    }

private:
    zmq::context_t m_context;
    zmq::socket_t m_socket;
    const std::vector<std::string> m_requests;
    zmq::message_t m_answer;
};

EchoService serveMirel(const std::string& url) {
    mirel::ZmqChannelOptions options;
    options.url = url;
    return serveMirelEcho(std::make_unique<mirel::ZmqChannel>(options));
}

std::unique_ptr<EchoCaller> callMirel(const std::string& url, int requests, int sources) {
    mirel::ZmqCallerOptions options;
    options.url = url;
    return callMirelEcho(std::make_unique<mirel::ZmqCaller>(options), requests, sources);
}

EchoService serveBare(const std::string& url) { return std::make_shared<BareService>(url); }

std::unique_ptr<EchoCaller> callBare(const std::string& url, int requests, int) {
    return std::make_unique<BareCaller>(url, requests);
}

constexpr std::array<Echo, 2> kEchoes{{
    {"mirel", &serveMirel, &callMirel},
    {"bare", &serveBare, &callBare},
}};

void add(const std::string& cell, int window, int sources) {
    for (const Echo& echo : kEchoes)
        addBenchmark(cell + std::string(echo.name), [=, &echo](benchmark::State& state) {
            const mirel::TemporaryFolder folder;
            measureEcho(state, echo, "ipc://" + folder.path("socket"), window, sources);
        });
}

} // namespace

int main(int argc, char** argv) {
    return runEchoProgram(argc, argv, kEchoes, [] {
        add("channel/closed/", 1, 1);
        for (const int sources : {1, 8})
            add("channel/saturated/" + std::to_string(sources) + "/", 100, sources);
    });
}
