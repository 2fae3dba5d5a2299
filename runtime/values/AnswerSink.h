#pragma once

#include "runtime/values/Answer.h"

#include <string>
#include <utility>

namespace mirel {

/// Takes answers on their way back to the callers of one channel.
class AnswerSink {
public:
    virtual ~AnswerSink() = default;

    /// Any thread. Does not wait for the executor's thread, which a service may be blocking. Drops
    /// the answer, and counts that, when the way back is gone. Has not taken it when this throws.
    virtual void answer(Answer answer) = 0;

    /// The same for a request that nobody has answered, with the failure that its caller is told. False
    /// when it was left to another process instead, and the caller is not told.
    virtual bool unanswered(Answer failure) {
        answer(std::move(failure));
        return true;
    }

    /// Asked before a request runs, with its callback channel. False when it is another process's by
    /// now: then it must not run, and has no answer. Any thread.
    virtual bool mayRun(const std::string&) { return true; }
};

} // namespace mirel
