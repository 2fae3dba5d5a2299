#pragma once

#include "channels/Shares.h"
#include "channels/zmq/ZmqAdmission.h"
#include "channels/zmq/ZmqChannelOptions.h"
#include "channels/zmq/ZmqEndpoint.h"
#include "channels/zmq/ZmqUntaken.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/Threadable.h"
#include "runtime/values/Answer.h"

#include <atomic>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>
#include <zmq.hpp>

namespace mirel {

class MessageQueue;
class ZmqOutbox;
struct SentMessage;
struct ChannelCounters;

/// Owns the socket of a `ZmqChannel`: feeds the queue, sends what is in the outbox, and waits for
/// nothing else. While the queue is full it leaves messages in the socket, whose limits then make
/// the callers wait.
class ZmqSocketThread : public Threadable {
public:
    /// Listens. `MirelException` when it cannot. The other objects must outlive this one.
    ZmqSocketThread(const ZmqChannelOptions& options, MessageQueue& queue, ZmqOutbox& outbox,
                    ChannelCounters& counters);

    /// Ends the thread when it has sent the outbox, and closes the socket, which waits a bounded
    /// time for callers to take their answers. The queue must be closed by then.
    ~ZmqSocketThread() override;

    void start();

    const std::string& url() const { return m_endpoint->url(); }

    void run() override;
    MirelThreadPriority getThreadPriorityForPlatform() override;
    std::string type() override;

private:
    void secure(const ZmqChannelOptions& options);
    void serve();
    void waitForWork();
    bool receiveSome();
    bool receiveOne();
    void take(const std::string& caller, std::string_view bytes);
    bool takeOn(const std::string& caller, SentMessage& sent, std::size_t bytes);
    void queueReceived();
    void answerUnread();
    void send(std::vector<Answer>& answers);
    void send(Answer& answer);
    void refuse(Answer failure); ///< nothing was taken on
    void transmit(const Answer& answer);

    const std::size_t m_maxMessageBytes;
    MessageQueue& m_queue;
    ZmqOutbox& m_outbox;
    ChannelCounters& m_counters;
    std::atomic<bool> m_stop{false};

    // Used by the thread that constructs and destroys, and in between by the thread of this object.
    zmq::context_t m_context;
    std::optional<ZmqAdmission> m_admission;
    zmq::socket_t m_socket;
    std::optional<ZmqEndpoint> m_endpoint;
    bool m_isRefusing = false; ///< what comes next belongs to a message that is refused

    Shares m_shares;               ///< of the requests that were received and not answered
    ZmqUntaken m_untaken;          ///< before m_socket is closed, and after
    std::vector<Answer> m_answers; ///< being sent; keeps its memory

    /// What goes into the queue together: one lock and one wake-up for all of it.
    std::deque<CommsChannelDataContainerMessage> m_received;
};

} // namespace mirel
