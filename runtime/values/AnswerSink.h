#pragma once

#include "runtime/values/Answer.h"

#include <string>
#include <utility>

namespace mirel {

/// Where the answers to a channel's requests go. Each request passes these steps, in this order:
///
///  1. `accept`, once: the executor has made a response for it. From then on it is owed an answer.
///  2. `claim`, once, when it is about to run. False ends its way here.
///  3. `answer` or `abandon`, once.
///
/// One that is never claimed, because it fails before it runs or is dropped, is abandoned.
///
/// Any thread may call, except `accept`, which is the executor's. A request is known by its
/// callback channel and its number. May be used after the channel has been destroyed, and drops
/// what it is given then.
class AnswerSink {
public:
    virtual ~AnswerSink() = default;

    virtual void accept(long /*requestId*/, const std::string& /*callbackChannel*/) noexcept {}

    /// False when the request is another process's by now: then it must not run, and has no answer.
    virtual bool claim(const std::string& /*callbackChannel*/) { return true; }

    /// Does not wait for the executor's thread, which a service may be blocking. Drops the answer,
    /// and counts that, when the way back is gone. Has not taken it when this throws.
    virtual void answer(Answer answer) = 0;

    /// Nobody has answered, and nobody will. Answers with `failure` (true), or leaves the request
    /// to another process (false).
    virtual bool abandon(Answer failure) {
        answer(std::move(failure));
        return true;
    }
};

} // namespace mirel
