#include "bench/ZmqEcho.h"

#include <stdexcept>
#include <thread>
#include <vector>
#include <zmq.hpp>

namespace bench {

namespace {

constexpr int kPatienceMs = 5000;

class BareService : public EchoService {
public:
    explicit BareService(const std::string& url) : m_socket(m_context, zmq::socket_type::router) {
        m_socket.bind(url);
        m_thread = std::thread([this] { echo(); });
    }

    ~BareService() override {
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

class BareCaller : public EchoCaller {
public:
    BareCaller(const std::string& url, int requests)
        : m_socket(m_context, zmq::socket_type::dealer) {
        for (std::size_t number = 0; number < static_cast<std::size_t>(requests); ++number)
            m_requests.push_back(dataOf(number));
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
    std::vector<std::string> m_requests;
    zmq::message_t m_answer;
};

} // namespace

std::unique_ptr<EchoService> serveBareZmqEcho(const std::string& url) {
    return std::make_unique<BareService>(url);
}

std::unique_ptr<EchoCaller> callBareZmqEcho(const std::string& url, int requests, int) {
    return std::make_unique<BareCaller>(url, requests);
}

} // namespace bench
