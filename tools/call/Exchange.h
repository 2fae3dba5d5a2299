#pragma once

#include "channels/Caller.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/MirelThreadPriority.h"

#include <chrono>
#include <cstddef>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <unordered_map>

namespace mirel {

/// Sends messages to a service and tells what comes of each. One thread.
///
/// Keeps to the caller's share. What the service refuses all the same, because other callers are
/// many or its limits are lower, is sent again when there are answers, in its source's order.
class Exchange {
public:
    using Clock = std::chrono::steady_clock;

    /// Is told what happens, one call for each message.
    class Listener {
    public:
        virtual ~Listener() = default;
        virtual void sent(const std::string& source) = 0; ///< a message that is not answered
        virtual void answered(const Answer& answer, MirelThreadPriority priority,
                              Clock::duration latency) = 0;
        virtual void unanswered(const std::string& source) = 0; ///< within the deadline
    };

    struct Outcome {
        unsigned long failed = 0;     ///< answered with a failure, or refused to the end
        unsigned long unanswered = 0; ///< or not even taken by the service
        unsigned long outOfOrder = 0; ///< answered after a later request of their source
        unsigned long unexpected = 0; ///< answers to nothing, doubled or late
        unsigned long skipped = 0;    ///< see `Caller::skipped`; strangers' doing, and no fault
        unsigned long sentAgain = 0;  ///< requests, each time

        bool good() const { return failed + unanswered + outOfOrder + unexpected == 0; }
    };

    /// At most `window` requests are on their way at once.
    Exchange(Caller& caller, std::size_t window, std::chrono::milliseconds deadline,
             Listener& listener);

    /// Numbers the message and sends it, or keeps it to be sent again; waits for answers to others
    /// first while there is no room. Once the service has not taken a message for the whole
    /// deadline, or is gone when a deadline is over, nothing more is sent, and counts as
    /// unanswered.
    void send(CommsChannelDataContainerMessage msg);

    /// Waits until every request has been answered or its deadline is over.
    void finish();

    const Outcome& outcome() const { return m_outcome; }

private:
    static constexpr double kUnlimited = std::numeric_limits<double>::max();

    struct Source {
        long lastAnswered = 0;
        std::size_t onWay = 0;
        std::size_t bytes = 0;     ///< of its requests in `m_waiting`
        std::set<long> refused;    ///< not on their way, in `m_waiting`
        double limit = kUnlimited; ///< on their way at once, as learnt from refusals
    };
    using Sources = std::unordered_map<std::string, Source>;

    struct Request {
        CommsChannelDataContainerMessage msg;
        std::size_t bytes;
        Sources::value_type* source; ///< in m_sources
        Clock::time_point sent;      ///< for the first time
        bool refused = false;
    };
    using Requests = std::map<long, Request>;

    bool hasRoom(const Sources::value_type& source, std::size_t bytes) const;
    void waitForAnswers();
    void takeAnswers(std::chrono::milliseconds patience);
    void take(const Answer& answer);
    void refused(Requests::iterator request, const Answer& answer);
    void sendRefused();
    bool laterOneOnWay(const Sources::value_type& source) const;
    void giveUpLateOnes();
    void giveUp(Requests::iterator request);
    void forget(Requests::iterator request);
    bool transmit(CommsChannelDataContainerMessage& msg);

    Caller& m_caller;
    const CallerShare m_share;
    const std::size_t m_window;
    const std::chrono::milliseconds m_deadline;
    Listener& m_listener;
    Outcome m_outcome;
    long m_lastId = 0;
    bool m_abandoned = false;
    Requests m_waiting; ///< by id, so the oldest comes first
    Sources m_sources;
    std::size_t m_busySources = 0; ///< that have requests in m_waiting
    std::size_t m_bytes = 0;       ///< of m_waiting
    std::size_t m_onWay = 0;       ///< of m_waiting
    std::size_t m_largestAnswer = 0;

    // What refusals have taught.
    double m_limit = kUnlimited;           ///< on their way at once
    std::set<Sources::value_type*> m_held; ///< with refused requests
    bool m_mayTryAgain = false;
    Clock::time_point m_nextTry;
    std::chrono::milliseconds m_pause;
    std::string m_lastRefusal;
};

} // namespace mirel
