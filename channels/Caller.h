#pragma once

#include "channels/Shares.h"
#include "runtime/values/Answer.h"

#include <chrono>
#include <optional>

class CommsChannelDataContainerMessage;

namespace mirel {

/// One caller of a service in another process. Used by one thread at a time.
///
/// A request that the service refuses for lack of room has not run and can be sent again (see
/// `Answer::refusal`). Until that answer was received, the service refuses what comes behind it in
/// its source, too. So who sends all of them again, in their order, before anything new of their
/// source, keeps that order.
class Caller {
public:
    virtual ~Caller() = default;

    /// What may be unanswered so that a service with default limits refuses nothing while there are
    /// few callers. Only what is about this caller counts; 0 is without limit.
    virtual CallerShare share() const { return {}; }

    /// False when the message could not be handed over for `patience` because the service takes no
    /// more. `MirelException` for a message that is too large.
    virtual bool send(CommsChannelDataContainerMessage& msg,
                      std::chrono::milliseconds patience) = 0;

    /// The next answer; nothing when none arrives for `patience`. `MirelException` for bytes that
    /// are no answer.
    virtual std::optional<Answer> receive(std::chrono::milliseconds patience) = 0;

    /// Whether the service can be reached now. A connection that is lost is looked for again; what
    /// is sent meanwhile is kept.
    virtual bool connected() = 0;

    /// Messages so far that came like answers and were none, or answered nothing that was sent.
    /// They cost nobody else's answer.
    virtual unsigned long skipped() const { return 0; }
};

} // namespace mirel
