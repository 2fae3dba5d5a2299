#pragma once

#include "runtime/threads/Mutex.h"
#include "runtime/values/AnswerSink.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace mirel {

class NatsConnection;
class NatsLeases;
class NatsLedger;
class NatsOutbox;
struct ChannelCounters;
struct NatsReturn;

/// Sends answers to their callers and acknowledges the requests. An answer is repeated until its
/// caller has confirmed it, because the server forgets a message for somebody who is not connected
/// just then; but it is kept only here, and for a limited time. So answers may overtake each other,
/// and the caller puts them in their order again. Any thread.
class NatsAnswers : public AnswerSink {
public:
    /// Answers ask for their confirmation at `inbox` and NatsAddress::confirmations. What comes to
    /// `inbox`wake.0 wakes the channel's thread.
    NatsAnswers(std::shared_ptr<NatsConnection> connection, std::shared_ptr<NatsOutbox> outbox,
                std::shared_ptr<NatsLedger> ledger, std::shared_ptr<ChannelCounters> counters,
                std::size_t maxAnswerBytes, std::string inbox);

    void answer(Answer answer) override;
    bool abandon(Answer failure) override;
    bool claim(const std::string& callbackChannel) override;

    /// By whose leases a request may run; null: none may any more. To be set before the first
    /// message.
    void setLeases(const NatsLeases* leases);

    /// From now on a request that is not answered is left to the next host.
    void leaveRest();

    /// Acknowledges a message that has no answer, by what it carries as its callback channel.
    void acknowledge(const std::string& callbackChannel);

    /// Sends an answer, encoded, that belongs to no response.
    void tell(std::string caller, std::string bytes);

    /// By that caller (see NatsAddress), who can confirm his own answers only.
    void confirmed(const std::string& caller, std::uint64_t number);

    /// Sends what has not been confirmed in time once more, or gives it up. To be called again and
    /// again, until nobody waits for an answer any more.
    void repeat();

    bool allConfirmed() const;

    /// Waits until the server has all answers and acknowledgements that have been given; false when
    /// that takes too long.
    bool flush(std::chrono::milliseconds patience);

private:
    using Clock = std::chrono::steady_clock;

    struct Unconfirmed {
        std::string caller;
        std::string bytes;
        Clock::time_point given;
        Clock::time_point nextTime;
        Clock::duration patience; ///< before the time after that
    };

    void acknowledge(const NatsReturn& way);
    void forgetFirst() MIREL_REQUIRES(m_mutex);
    void tellForgotten();
    void keep(std::string caller, std::string bytes);
    void put(std::uint64_t number, const Unconfirmed& answer);

    const std::shared_ptr<NatsConnection> m_connection;
    const std::shared_ptr<NatsOutbox> m_outbox;
    const std::shared_ptr<NatsLedger> m_ledger;
    const std::shared_ptr<ChannelCounters> m_counters;
    const std::size_t m_maxAnswerBytes;
    const std::string m_inbox;
    std::atomic<bool> m_leavesRest{false};

    mutable Mutex m_mutex; ///< nothing is sent or logged under it
    const NatsLeases* m_leases MIREL_GUARDED_BY(m_mutex) = nullptr;
    std::size_t m_keptBytes MIREL_GUARDED_BY(m_mutex) = 0;
    std::size_t m_forgotten MIREL_GUARDED_BY(m_mutex) = 0; ///< and not told yet
    /// Of the connection, that have been dealt with.
    unsigned long m_losses MIREL_GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_last MIREL_GUARDED_BY(m_mutex) = 0;                           ///< number given
    std::map<std::uint64_t, Unconfirmed> m_unconfirmed MIREL_GUARDED_BY(m_mutex); ///< by number
};

} // namespace mirel
