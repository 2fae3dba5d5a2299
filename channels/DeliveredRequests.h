#pragma once

#include "runtime/values/AnswerSink.h"

#include <memory>
#include <string>

class CommsChannelDataContainerMessage;

namespace mirel {

class FlowLimit;
struct ChannelCounters;

/// Stands between the responses and a channel's transport: counts, keeps the limit, and knows
/// whether the request that was delivered last has been accepted. Outlives its channel.
class DeliveredRequests : public AnswerSink {
public:
    DeliveredRequests(std::shared_ptr<AnswerSink> transport,
                      std::shared_ptr<ChannelCounters> counters);

    /// To be called before the first message is delivered.
    void limitBy(std::shared_ptr<FlowLimit> limit);
    FlowLimit& limit() const { return *m_limit; }

    // The executor's thread only.

    /// What was read, and the executor is about to see.
    void delivered(CommsChannelDataContainerMessage& msg);

    /// A request that was delivered and is not accepted.
    struct Unaccepted {
        long requestId = 0;
        std::string sourceChannel;
        std::string callbackChannel;
        std::string interface;
        std::string protocol;
    };

    /// The one delivered last, unless it was accepted; else null.
    const Unaccepted* unaccepted() const { return m_isUnaccepted ? &m_last : nullptr; }

    /// Answers that one with a failure.
    void refuseUnaccepted(std::string why);

    void accept(long requestId, const std::string& callbackChannel) noexcept override;

    // Any thread.

    bool claim(const std::string& callbackChannel) override;
    void answer(Answer answer) override;
    bool abandon(Answer failure) override;

private:
    const std::shared_ptr<AnswerSink> m_transport;
    const std::shared_ptr<ChannelCounters> m_counters;
    std::shared_ptr<FlowLimit> m_limit; ///< constant once messages are delivered

    // The executor's thread only.
    Unaccepted m_last; ///< keeps its memory from request to request
    bool m_isUnaccepted = false;
};

} // namespace mirel
