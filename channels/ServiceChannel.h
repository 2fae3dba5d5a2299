#pragma once

#include "runtime/values/AnsweringChannel.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>

namespace mirel {

class DeliveredRequests;
class FlowLimit;
struct ChannelCounters;

/// What all our channels do, whatever carries their messages:
///
///  - Nothing is delivered while too much is under way (see `FlowLimit`).
///  - A request that was delivered and led to no response, because its interface is not offered or
///    has no handler, is answered with a failure when the executor asks for the next message.
///  - What passes is counted.
///
/// A transport derives from it. The executor's thread calls `readMessage`, any thread what is not
/// said to be somebody's.
class ServiceChannel : public AnsweringChannel {
public:
    ~ServiceChannel() override;

    bool readMessage(CommsChannelDataContainerMessage& msg) final;
    void close() final;
    std::shared_ptr<AnswerSink> answerSink() final;

    // Both: to be called before the executor's thread starts.

    /// Instead of a limit of its own, with `FlowLimit::kDefault`. Several channels and a
    /// `LimitedPool` may share one.
    void limitBy(std::shared_ptr<FlowLimit> limit);

    /// Why there is no response to a request for this interface and protocol, and what there is
    /// instead; `ServiceContext::whyUnserved` knows. Called on the executor's thread. Empty: a text
    /// that does not say what there is.
    using WhyUnserved =
        std::function<std::string(const std::string& interface, const std::string& protocol)>;
    void explainBy(WhyUnserved whyUnserved);

    std::shared_ptr<const ChannelCounters> counters() const;

    /// Where callers find it.
    virtual std::string url() const = 0;

    /// To be called between the executor's shutdown and the pool's: what is not answered from then
    /// on is left to the next host, where the transport can do that, instead of failing.
    virtual void leaveRest() {}

protected:
    /// `component` is that of the log; `url` names the channel there.
    ServiceChannel(const char* component, const std::string& url);

    /// To be called by the transport's constructor, with what takes the answers to its callers.
    void answerBy(std::shared_ptr<AnswerSink> transport);

    /// As `readMessage` and `close`.
    virtual bool readNext(CommsChannelDataContainerMessage& msg) = 0;
    virtual void closeTransport() = 0;

    /// For the destructor of a transport that leaves nothing to others: a request over which the
    /// executor's loop ended is answered.
    void failLastRead();

    const std::shared_ptr<ChannelCounters> m_counters; ///< the transport counts here, too

private:
    std::shared_ptr<DeliveredRequests> m_requests; ///< constant once constructed
    WhyUnserved m_whyUnserved;                     ///< constant once the executor's thread runs
    std::atomic<bool> m_closed{false};
};

} // namespace mirel
