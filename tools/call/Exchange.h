#pragma once

#include "channels/Caller.h"
#include "framework/MirelThreadPriority.h"

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <unordered_map>

class CommsChannelDataContainerMessage;

namespace mirel {

/// Sends messages to a service and tells what comes of each. One thread.
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
        unsigned long failed = 0;     ///< answered with a failure
        unsigned long unanswered = 0; ///< or not even taken by the service
        unsigned long outOfOrder = 0; ///< answered after a later request of their source
        unsigned long unexpected = 0; ///< answers to nothing, doubled or late

        bool good() const { return failed + unanswered + outOfOrder + unexpected == 0; }
    };

    /// At most `window` requests are on their way at once.
    Exchange(Caller& caller, std::size_t window, std::chrono::milliseconds deadline,
             Listener& listener);

    /// Numbers the message and sends it; waits for answers to others first when the window is full.
    /// Once the service has not taken a message for the whole deadline, or is gone when a deadline
    /// is over, nothing more is sent, and counts as unanswered.
    void send(CommsChannelDataContainerMessage& msg);

    /// Waits until every request has been answered or its deadline is over.
    void finish();

    const Outcome& outcome() const { return m_outcome; }

private:
    struct Request {
        std::string source;
        MirelThreadPriority priority;
        Clock::time_point sent;
    };

    void waitForAnswers();
    void takeAnswers(std::chrono::milliseconds patience);
    void take(const Answer& answer);
    void giveUpLateOnes();

    Caller& m_caller;
    const std::size_t m_window;
    const std::chrono::milliseconds m_deadline;
    Listener& m_listener;
    Outcome m_outcome;
    long m_lastId = 0;
    bool m_abandoned = false;
    std::map<long, Request> m_waiting;                    ///< by id, so the oldest comes first
    std::unordered_map<std::string, long> m_lastAnswered; ///< of each source
};

} // namespace mirel
