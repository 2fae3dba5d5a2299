#include "channels/zmq/ZmqSocketThread.h"

#include "channels/ChannelCounters.h"
#include "channels/Envelope.h"
#include "channels/Printable.h"
#include "channels/ReceivedMessage.h"
#include "channels/queue/MessageQueue.h"
#include "channels/zmq/ZmqOutbox.h"
#include "channels/zmq/ZmqReturn.h"
#include "channels/zmq/ZmqSecurity.h"
#include "framework/Logging.h"
#include "framework/MirelException.h"
#include "framework/Threader.h"
#include "runtime/threads/SignalsBlocked.h"
#include "runtime/values/MessageRules.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cxxabi.h>
#include <exception>
#include <new>
#include <utility>

namespace mirel {

namespace {

constexpr std::size_t kLargestLimit = std::size_t{1} << 30;
constexpr std::int64_t kHardLimitFactor = 4;

/// Messages of one caller that ZeroMQ keeps, beside the system's socket buffers.
constexpr std::size_t kReceivedPerCaller = 100;
constexpr std::size_t kReceivedBytesPerCaller = std::size_t{32} << 20;
constexpr int kAnswersPerCaller = 1000;

/// ZeroMQ counts what a peer has taken in steps of half its limit, and drops an answer when it
/// believes the limit to be reached: that it keeps so many is sure of half of the limit only.
constexpr int kSureOfHalf = 2;

constexpr const char* kNoMemory = "there is no memory for it";

/// Messages taken before answers get their turn again.
constexpr std::size_t kBatch = 100;

constexpr std::chrono::milliseconds kMemoryMayBeBack{100};

/// For what is under way when the channel ends: first what callers have sent, then the answers.
constexpr std::chrono::seconds kLastInput{1};
constexpr std::chrono::milliseconds kLinger{1000};

[[noreturn]] void fail(const std::string& text) { throw MirelException(text, __FILE__, __LINE__); }

void setLimits(zmq::socket_t& socket, const ZmqChannelOptions& options) {
    if (options.maxMessageBytes == 0 || options.maxMessageBytes > kLargestLimit)
        fail("the largest message must have 1 to " + std::to_string(kLargestLimit) + " bytes");
    const auto limit = static_cast<std::int64_t>(options.maxMessageBytes);
    socket.set(zmq::sockopt::maxmsgsize, kHardLimitFactor * limit);
    const std::size_t kept =
        std::min(options.queueLength, kReceivedBytesPerCaller / options.maxMessageBytes);
    socket.set(zmq::sockopt::rcvhwm,
               static_cast<int>(std::clamp<std::size_t>(kept, 1, kReceivedPerCaller)));
    socket.set(zmq::sockopt::sndhwm, kSureOfHalf * kAnswersPerCaller);
    socket.set(zmq::sockopt::linger, static_cast<int>(kLinger.count()));
    socket.set(zmq::sockopt::router_mandatory, true);

    // Dead peers are found by the system, not by ZeroMQ's heartbeats: a socket that makes its peer
    // wait does not read heartbeats either, and would drop the connection and what it carries.
    socket.set(zmq::sockopt::tcp_keepalive, 1);
    socket.set(zmq::sockopt::tcp_keepalive_idle, 30);
    socket.set(zmq::sockopt::tcp_keepalive_intvl, 10);
    socket.set(zmq::sockopt::tcp_keepalive_cnt, 3);
}

} // namespace

ZmqSocketThread::ZmqSocketThread(const ZmqChannelOptions& options, MessageQueue& queue,
                                 ZmqOutbox& outbox, ChannelCounters& counters)
    : m_maxMessageBytes(options.maxMessageBytes),
      m_queue(queue),
      m_outbox(outbox),
      m_counters(counters),
      m_socket(m_context, zmq::socket_type::router),
      m_shares(options.shares),
      m_untaken(options.callerAnswerBytes, options.answerBytes) {
    setLimits(m_socket, options);
    secure(options);
    m_endpoint.emplace(m_socket, options);
}

ZmqSocketThread::~ZmqSocketThread() {
    m_stop = true;
    m_outbox.wake().set();
    waitForThreadCompletion();
}

void ZmqSocketThread::secure(const ZmqChannelOptions& options) {
    if (options.curveKeyFile.empty()) {
        if (!options.allowedCallersFile.empty())
            fail("a list of allowed callers needs CURVE, which needs the service's key file");
        return;
    }
    m_socket.set(zmq::sockopt::curve_server, true);
    m_socket.set(zmq::sockopt::curve_secretkey, readCurveKeys(options.curveKeyFile).secretKey);
    if (!options.allowedCallersFile.empty()) {
        m_admission.emplace(m_context, readAllowedCallers(options.allowedCallersFile), options.url);
        m_socket.set(zmq::sockopt::zap_domain, "mirel");
    }
}

void ZmqSocketThread::start() {
    unsigned long threadId = 0;
    Threader().createThread(threadId, this, "", 0, 0);
}

MirelThreadPriority ZmqSocketThread::getThreadPriorityForPlatform() {
    return ePriorityHigh; // answers of every priority go through here
}

std::string ZmqSocketThread::type() { return "mirel-zmq"; }

void ZmqSocketThread::run() {
    const SignalsBlocked signalsBlocked; // they would interrupt ZeroMQ's functions, too
    try {
        serve();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (const std::exception& failure) {
        logAppUni("ZmqChannel", __FILE__, 2, __LINE__, "%s: the channel ends: %s", url().c_str(),
                  failure.what());
        m_queue.close(); // ends the executor's loop
        for ([[maybe_unused]] const Answer& lost : m_outbox.close())
            m_counters.answersDropped.refuse("the channel has ended");
    }
}

void ZmqSocketThread::serve() {
    while (!m_stop) {
        m_outbox.take(m_answers);
        send(m_answers);
        m_answers.clear(); // not later: they may be large
        if (m_admission)
            m_admission->answerQuestions();
        if (!receiveSome() && m_outbox.mayWait())
            waitForWork();
    }
    // The queue is closed: what callers have sent is answered with a failure.
    answerUnread();
    const auto deadline = std::chrono::steady_clock::now() + kLastInput;
    while (receiveSome() && std::chrono::steady_clock::now() < deadline) {
    }
    m_answers = m_outbox.close();
    send(m_answers);
}

void ZmqSocketThread::waitForWork() {
    // Who takes a message from the full queue sets the outbox's event.
    const auto messages = static_cast<short>(m_queue.room() > 0 ? ZMQ_POLLIN : 0);
    std::array<zmq::pollitem_t, 3> items{{
        {nullptr, m_outbox.wake().descriptor(), ZMQ_POLLIN, 0},
        {m_socket.handle(), 0, messages, 0},
        {m_admission ? m_admission->socket().handle() : nullptr, 0, ZMQ_POLLIN, 0},
    }};
    zmq::poll(items.data(), m_admission ? 3 : 2,
              m_received.empty() ? std::chrono::milliseconds(-1) : kMemoryMayBeBack);
    if (items[0].revents != 0)
        m_outbox.wake().clear();
}

/// Whether there may be more to receive.
bool ZmqSocketThread::receiveSome() {
    const std::size_t room = m_queue.room();
    const std::size_t most = std::min(kBatch, room - std::min(room, m_received.size()));
    std::size_t received = 0;
    while (received < most && receiveOne())
        ++received;
    try {
        queueReceived();
    } catch (const std::bad_alloc&) {
        // What has not been queued is still there, and is tried again; see waitForWork.
    }
    return received > 0 && received == most;
}

/// One message, or one frame of a message that is refused: it may have millions, since ZeroMQ does
/// not bound their number, and answers get their turn meanwhile.
bool ZmqSocketThread::receiveOne() {
    zmq::message_t caller;
    if (!m_socket.recv(caller, zmq::recv_flags::dontwait))
        return false;
    if (m_isRefusing) {
        m_isRefusing = caller.more();
        return true;
    }
    zmq::message_t body;
    const bool hasBody = caller.more() && m_socket.recv(body, zmq::recv_flags::dontwait);
    m_isRefusing = body.more();
    if (!hasBody || m_isRefusing) {
        m_counters.refused.refuse("it does not consist of one frame");
        return true;
    }
    try {
        take(caller.to_string(), body.to_string_view());
    } catch (const std::bad_alloc&) {
        m_counters.refused.refuse(kNoMemory);
    }
    return true;
}

void ZmqSocketThread::take(const std::string& caller, std::string_view bytes) {
    auto sent = decodeReceived(bytes, zmqReturn::text(caller, bytes.size()), m_maxMessageBytes,
                               m_counters.refused, [this](const Answer& why) { refuse(why); });
    if (!sent)
        return;
    const bool isRequest = isInvokerRequest(sent->msg);
    if (isRequest && !takeOn(caller, *sent, bytes.size()))
        return;
    try {
        m_received.push_back(std::move(sent->msg));
    } catch (...) {
        if (isRequest)
            m_shares.release(caller, sent->msg.sourceChannel(), bytes.size());
        throw;
    }
    ++m_counters.received;
}

bool ZmqSocketThread::takeOn(const std::string& caller, SentMessage& sent, std::size_t bytes) {
    CommsChannelDataContainerMessage& msg = sent.msg;
    const auto refusal = m_shares.takeOn(caller, msg.sourceChannel(), bytes, sent.refusalsKnown);
    if (!refusal)
        return true;
    m_counters.refused.refuse(refusal->why + " (caller " + printable(caller) + ')');
    refuse({false, msg.requestId(), msg.sourceChannel(), msg.callbackChannel(),
            "the request was refused: " + refusal->why, refusal->number});
    return false;
}

/// Leaves nothing in m_received: there is room for all of it, since nobody else fills the queue.
void ZmqSocketThread::queueReceived() {
    if (!m_received.empty())
        m_queue.sendWhatFits(m_received);
    if (m_queue.closed())
        answerUnread();
}

/// Here and nowhere else, so that the callers get these answers in the order of their requests.
void ZmqSocketThread::answerUnread() {
    std::deque<CommsChannelDataContainerMessage> unread = m_queue.takeRest();
    for (CommsChannelDataContainerMessage& msg : std::exchange(m_received, {}))
        unread.push_back(std::move(msg));
    std::vector<Answer> failures;
    for (CommsChannelDataContainerMessage& msg : unread)
        if (isInvokerRequest(msg))
            failures.push_back({false, msg.requestId(), msg.sourceChannel(), msg.callbackChannel(),
                                "the service stopped before the request was read"});
    send(failures);
}

void ZmqSocketThread::send(std::vector<Answer>& answers) {
    for (Answer& answer : answers) {
        try {
            send(answer);
        } catch (const std::bad_alloc&) {
            m_counters.answersDropped.refuse(kNoMemory);
        }
    }
}

void ZmqSocketThread::send(Answer& answer) {
    const std::size_t bytes = zmqReturn::takeSize(answer.callbackChannel);
    m_shares.release(answer.callbackChannel, answer.sourceChannel, bytes);
    if (answer.data.size() > m_maxMessageBytes) {
        answer.succeeded = false;
        answer.data = tooLong("the answer", answer.data.size(), m_maxMessageBytes);
    }
    transmit(answer);
}

void ZmqSocketThread::refuse(Answer failure) {
    zmqReturn::takeSize(failure.callbackChannel);
    transmit(failure);
}

void ZmqSocketThread::transmit(const Answer& answer) {
    const std::string& name = answer.callbackChannel;
    auto message = m_untaken.message(answer); // whole: nothing may fail between two frames
    if (!message) {
        m_counters.answersDropped.refuse(printable(name) + " has taken too few of its answers (" +
                                         "--caller-answer-bytes, --answer-bytes)");
        return;
    }
    try {
        const zmq::const_buffer caller = zmq::buffer(name);
        if (!m_socket.send(caller, zmq::send_flags::sndmore | zmq::send_flags::dontwait)) {
            m_counters.answersDropped.refuse(printable(name) + " does not take its answers");
            return;
        }
        ++m_counters.answersSent; // before the caller can have it
        m_socket.send(*message, zmq::send_flags::dontwait);
    } catch (const zmq::error_t& failure) {
        if (failure.num() != EHOSTUNREACH)
            throw;
        m_counters.answersDropped.refuse(printable(name) + " is gone");
    }
}

} // namespace mirel
