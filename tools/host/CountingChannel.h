#pragma once

#include "framework/CommsChannelIfc.h"

#include <memory>

namespace mirel {

class FlowLimit;
struct Tally;

/// A channel that counts what the executor reads and what is answered, and delivers nothing while
/// too much is under way.
class CountingChannel : public CommsChannelIfc {
public:
    CountingChannel(std::unique_ptr<CommsChannelIfc> channel, std::shared_ptr<Tally> tally,
                    std::shared_ptr<FlowLimit> flow);

    bool readMessage(CommsChannelDataContainerMessage& msg) override;
    void close() override;
    std::shared_ptr<AnswerSink> answerSink() override;

private:
    const std::shared_ptr<Tally> m_tally;
    const std::shared_ptr<FlowLimit> m_flow;
    const std::unique_ptr<CommsChannelIfc> m_channel;
};

} // namespace mirel
