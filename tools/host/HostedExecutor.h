#pragma once

#include "ServiceExecutor.h"
#include "runtime/threads/EventFd.h"

#include <functional>
#include <utility>

namespace mirel {

/// An executor whose loop starts again after a failure, and that tells when it has ended for good.
class HostedExecutor : public ServiceExecutor {
public:
    /// Whether the loop may start again. Asked on the executor's thread each time that a failure,
    /// published already, has ended it.
    using MayStartAgain = std::function<bool()>;

    /// The further arguments are those of a `ServiceExecutor`.
    template <typename... Arguments>
    explicit HostedExecutor(MayStartAgain mayStartAgain, Arguments&&... arguments)
        : ServiceExecutor(std::forward<Arguments>(arguments)...),
          m_mayStartAgain(std::move(mayStartAgain)) {}

    void run() override {
        const SetAtEnd mark{m_ended};
        do {
            ServiceExecutor::run();
        } while (hasStarted() && m_mayStartAgain()); // not started: the channel has ended
    }

    /// Set when the loop has ended, however it did.
    const EventFd& ended() const { return m_ended; }

private:
    struct SetAtEnd {
        EventFd& event;
        ~SetAtEnd() { event.set(); }
    };

    const MayStartAgain m_mayStartAgain;
    EventFd m_ended;
};

} // namespace mirel
