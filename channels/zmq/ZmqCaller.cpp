#include "channels/zmq/ZmqCaller.h"

#include "channels/Envelope.h"
#include "channels/RandomName.h"
#include "channels/ReceivedMessage.h"
#include "channels/zmq/ZmqChannelOptions.h"
#include "channels/zmq/ZmqSecurity.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/MirelException.h"
#include "runtime/threads/PendingWakeUps.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <zmq.hpp>

namespace mirel {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// Messages that ZeroMQ keeps in each direction; see the class's comment.
constexpr int kKeptMessages = 1000;
constexpr milliseconds kLinger{1000};

/// What a service with room for 1000 workers lets one caller have.
constexpr std::size_t kSourcesAtOnce = 700;

[[noreturn]] void fail(const std::string& text) { throw MirelException(text, __FILE__, __LINE__); }

/// As ZeroMQ takes it: no more than fits, and any time below 0 waits for ever.
int inMilliseconds(milliseconds patience) {
    return static_cast<int>(
        std::clamp(patience, milliseconds(-1), milliseconds(std::numeric_limits<int>::max()))
            .count());
}

void secure(zmq::socket_t& socket, const ZmqCallerOptions& options) {
    if (options.serverKeyFile.empty()) {
        if (!options.curveKeyFile.empty())
            fail("a caller's own key needs the service's public key as well");
        return;
    }
    const CurveKeys keys =
        options.curveKeyFile.empty() ? generateCurveKeys() : readCurveKeys(options.curveKeyFile);
    socket.set(zmq::sockopt::curve_serverkey, readPublicKey(options.serverKeyFile));
    socket.set(zmq::sockopt::curve_publickey, keys.publicKey);
    socket.set(zmq::sockopt::curve_secretkey, keys.secretKey);
}

/// What ZeroMQ tells about the connection.
class ConnectionMonitor {
public:
    ConnectionMonitor(zmq::context_t& context, zmq::socket_t& watched)
        : m_watched(watched),
          m_events(context, zmq::socket_type::pair) {
        constexpr int events = ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_HANDSHAKE_FAILED_AUTH |
                               ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL |
                               ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL | ZMQ_EVENT_DISCONNECTED;
        if (zmq_socket_monitor(m_watched.handle(), kAddress, events) != 0)
            throw zmq::error_t();
        m_events.connect(kAddress);
    }
    ~ConnectionMonitor() { zmq_socket_monitor(m_watched.handle(), nullptr, 0); }

    ConnectionMonitor(const ConnectionMonitor&) = delete;
    ConnectionMonitor& operator=(const ConnectionMonitor&) = delete;

    /// `MirelException` that says why there is no connection.
    void waitForHandshake(const std::string& url, milliseconds patience) {
        PendingWakeUps::ofThisThread().issue();
        const Clock::time_point deadline = Clock::now() + patience;
        bool found = false; // something that did not shake hands
        for (;;) {
            const auto left =
                std::chrono::ceil<milliseconds>(std::max(deadline - Clock::now(), {}));
            const std::optional<int> event = nextEvent(left);
            if (!event)
                break;
            if (m_connected)
                return;
            if (*event == ZMQ_EVENT_HANDSHAKE_FAILED_AUTH)
                fail("the service at " + url + " does not let this caller's key in");
            found = true;
        }
        fail(found ? "the service at " + url +
                         " refuses the connection: the CURVE keys of the two "
                         "sides do not fit, only one side uses CURVE, or it has no room for "
                         "another caller now (its log tells)"
                   : "no service answers at " + url + " within " +
                         std::to_string(patience.count()) + " ms");
    }

    /// Whether there is a connection now.
    bool connected() {
        while (nextEvent(milliseconds(0))) {
        }
        return m_connected;
    }

private:
    std::optional<int> nextEvent(milliseconds patience) {
        m_events.set(zmq::sockopt::rcvtimeo, inMilliseconds(patience));
        zmq::message_t event;
        zmq::message_t address;
        if (!m_events.recv(event) || !m_events.recv(address))
            return std::nullopt;
        std::uint16_t kind = 0;
        std::memcpy(&kind, event.data(), std::min(sizeof(kind), event.size()));
        if (kind == ZMQ_EVENT_HANDSHAKE_SUCCEEDED)
            m_connected = true;
        else if (kind == ZMQ_EVENT_DISCONNECTED)
            m_connected = false;
        return kind;
    }

    static constexpr const char* kAddress = "inproc://connection-events";
    zmq::socket_t& m_watched;
    zmq::socket_t m_events;
    bool m_connected = false;
};

} // namespace

class ZmqCaller::Connection {
public:
    explicit Connection(const ZmqCallerOptions& options)
        : m_socket(m_context, zmq::socket_type::dealer),
          m_monitor(m_context, m_socket) {
        m_socket.set(zmq::sockopt::routing_id, randomCallerName());
        m_socket.set(zmq::sockopt::linger, static_cast<int>(kLinger.count()));
        m_socket.set(zmq::sockopt::sndhwm, kKeptMessages);
        m_socket.set(zmq::sockopt::rcvhwm, kKeptMessages);
        m_socket.set(zmq::sockopt::ipv6, options.url.find('[') != std::string::npos);
        secure(m_socket, options);
        try {
            m_socket.connect(options.url);
            m_monitor.waitForHandshake(options.url, options.patience);
        } catch (const zmq::error_t& failure) {
            fail("cannot connect to " + options.url + ": " + failure.what());
        }
    }

    bool send(zmq::const_buffer bytes, milliseconds patience) {
        if (m_socket.send(bytes, zmq::send_flags::dontwait))
            return true;
        PendingWakeUps::ofThisThread().issue();
        m_socket.set(zmq::sockopt::sndtimeo, inMilliseconds(patience));
        return m_socket.send(bytes, zmq::send_flags::none).has_value();
    }

    bool receive(zmq::message_t& bytes, milliseconds patience) {
        PendingWakeUps::ofThisThread().issue();
        m_socket.set(zmq::sockopt::rcvtimeo, inMilliseconds(patience));
        return m_socket.recv(bytes).has_value();
    }

    bool connected() { return m_monitor.connected(); }

private:
    zmq::context_t m_context;
    zmq::socket_t m_socket;
    ConnectionMonitor m_monitor;
};

ZmqCaller::ZmqCaller(const ZmqCallerOptions& options)
    : m_maxMessageBytes(options.maxMessageBytes),
      m_connection(std::make_unique<Connection>(options)) {}

ZmqCaller::~ZmqCaller() = default;

CallerShare ZmqCaller::share() const {
    const ZmqChannelOptions service;
    return {service.shares.caller, service.shares.source, kSourcesAtOnce,
            service.callerAnswerBytes};
}

bool ZmqCaller::connected() { return m_connection->connected(); }

bool ZmqCaller::send(CommsChannelDataContainerMessage& msg, milliseconds patience) {
    const std::string bytes = encode(msg, m_refusalsKnown);
    if (bytes.size() > m_maxMessageBytes)
        fail(tooLong("the message", bytes.size(), m_maxMessageBytes));
    return m_connection->send(zmq::buffer(bytes), patience);
}

std::optional<Answer> ZmqCaller::receive(milliseconds patience) {
    zmq::message_t bytes;
    if (!m_connection->receive(bytes, patience))
        return std::nullopt;
    try {
        Answer answer = decodeAnswer(bytes.to_string_view());
        if (answer.refusal != 0)
            m_refusalsKnown = answer.refusal;
        return answer;
    } catch (const EnvelopeError& failure) {
        fail(std::string("the service sent something that is no answer: ") + failure.what());
    }
}

} // namespace mirel
