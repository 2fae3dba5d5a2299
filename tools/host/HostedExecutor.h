#pragma once

#include "ServiceExecutor.h"
#include "runtime/threads/EventFd.h"

namespace mirel {

/// An executor that tells when its loop has ended.
class HostedExecutor : public ServiceExecutor {
public:
    using ServiceExecutor::ServiceExecutor;

    void run() override {
        const SetAtEnd mark{m_ended};
        ServiceExecutor::run();
    }

    /// Set when the loop has ended, however it did.
    const EventFd& ended() const { return m_ended; }

private:
    struct SetAtEnd {
        EventFd& event;
        ~SetAtEnd() { event.set(); }
    };

    EventFd m_ended;
};

} // namespace mirel
