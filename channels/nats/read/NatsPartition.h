#pragma once

#include "channels/nats/read/NatsConsumer.h"
#include "channels/nats/read/NatsHandedOut.h"
#include "channels/nats/read/NatsLedger.h"
#include "framework/CommsChannelDataContainerMessage.h"

#include <cstdint>
#include <deque>
#include <nats/nats.h>
#include <string>

namespace mirel {

class MessageQueue;
class NatsAnswers;
class NatsAttempts;
class NatsConnection;
struct ChannelCounters;
struct NatsDelivery;

/// What the partitions of one channel share. All of it outlives them.
struct NatsReading {
    NatsConnection& connection;
    const NatsChannelOptions& options;
    MessageQueue& queue; ///< has room for all that can be delivered
    NatsLedger& ledger;
    ChannelCounters& counters;
    NatsAttempts& attempts;
    NatsAnswers& answers;
    std::string inbox; ///< prefix of the subjects that messages are delivered to
};

/// One partition as its reader sees it: closed, open, or on the way there, which it takes when it
/// is opened and whenever the server's delivery is not the next message for the first time (a lost
/// connection, another leader, a gap, a repetition). It hands out nothing more then, lets what is
/// in work finish, and begins again behind what was acknowledged. Used by the channel's thread
/// only.
class NatsPartition {
public:
    NatsPartition(const NatsReading& reading, unsigned number);

    /// Opens it as soon as nothing of it is in work.
    void open(unsigned long tenure);

    /// Hands out nothing more.
    void close();

    /// That it was opened for; 0: it is closed.
    unsigned long tenure() const { return m_tenure; }

    /// Whether nothing is in work that was handed out.
    bool isIdle() const;

    /// Deletes its consumer, so that a successor need not doubt anything. Closed and idle only.
    /// False when the server does not answer.
    bool leave() { return m_consumer.remove(); }

    /// A message of that caller that was delivered to this partition.
    void take(natsMsg* msg, const NatsDelivery& delivery, const std::string& caller);

    /// What the server says about the pull with that number.
    void takeStatus(natsMsg* msg, unsigned long pull);

    /// Hands out what has been taken, and looks after the rest. To be called again and again.
    /// `allRead`: nothing that was delivered waits to be taken, so that silence means something.
    void tick(unsigned long connectionLosses, bool allRead);

    /// Opening asks the server several things, and takes seconds in a bad moment.
    bool wantsToOpen() const;
    void tryToOpen(unsigned long connectionLosses);

private:
    using Clock = NatsLedger::Clock;

    enum class State { eClosed, eOpening, eOpen };

    struct Waiting : NatsHandedOut::Message {
        CommsChannelDataContainerMessage msg;

        /// For ever: a number alone may come again.
        std::string name() const { return std::to_string(sequence) + '.' + std::to_string(stored); }
    };

    void tellFailure(const char* what, const char* why);
    void lookAtStream();
    void pull();
    void disturbed(const std::string& why);
    void forgetWaiting();
    void logSkipped(std::uint64_t sequence, const char* why) const;
    void handOut();
    bool dealWithFirst();
    void giveUp(Waiting& waiting);

    const NatsReading& m_reading;
    const unsigned m_number;
    NatsConsumer m_consumer;
    State m_state = State::eClosed;
    unsigned long m_tenure = 0;
    unsigned long m_pull = 0;   ///< number of the last one, the last token of its inbox
    std::size_t m_expected = 0; ///< messages that it will still bring
    unsigned long m_connectionLosses = 0;
    std::uint64_t m_nextDelivery = 1; ///< consumer sequence
    /// What was handed out has run, or is in work, or was dropped, and then it is taken back here.
    NatsHandedOut m_handedOut;
    Clock::time_point m_lastHeard{};
    bool m_toldFailure = false;
    std::string m_streamCreated;   ///< when, as the server tells it; empty: not known yet
    std::deque<Waiting> m_waiting; ///< taken, in the ledger, and not handed out yet
    std::deque<CommsChannelDataContainerMessage> m_ready;
};

} // namespace mirel
