#pragma once

#include "framework/CommsChannelIfc.h"
#include "runtime/values/AnswerSink.h"

#include <memory>

namespace mirel {

/// A channel whose requests are answered.
class AnsweringChannel : public CommsChannelIfc {
public:
    /// The same object each time. Any thread.
    virtual std::shared_ptr<AnswerSink> answerSink() = 0;

    /// That of `channel`; null for a channel of another kind, and for none.
    static std::shared_ptr<AnswerSink> sinkOf(CommsChannelIfc* channel) {
        void* const part = channel ? channel->opaque() : nullptr;
        return part ? static_cast<AnsweringChannel*>(part)->answerSink() : nullptr;
    }

private:
    void* opaque() final { return this; }
};

} // namespace mirel
