#pragma once

#include "runtime/values/Answer.h"

#include <chrono>
#include <optional>

class CommsChannelDataContainerMessage;

namespace mirel {

/// One caller of a service in another process. Used by one thread at a time.
class Caller {
public:
    virtual ~Caller() = default;

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
};

} // namespace mirel
