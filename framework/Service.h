#pragma once

#include "framework/Executable.h"
#include "framework/Threadable.h"

#include <string>

class CommsChannelDataContainerMessage;
class CommsChannelIfc;

/// Base of a service that also takes legacy messages, those that name no protocol or no interface.
class Service : public Executable, public Threadable {
public:
    /// Handles one legacy message on the executor's thread, which reads nothing until this
    /// returns. `data` is `length` bytes followed by a NUL byte and lives as long as the call.
    /// What this throws ends the executor's loop.
    virtual void handleMessage(const char* data, int length, std::string sourceChannel,
                               CommsChannelIfc* channel, CommsChannelDataContainerMessage& msg) = 0;

    /// A service has no thread of its own unless it starts one; then it overrides these.
    void run() override;
    MirelThreadPriority getThreadPriorityForPlatform() override;
};
