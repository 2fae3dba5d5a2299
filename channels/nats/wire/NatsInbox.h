#pragma once

#include "channels/nats/wire/NatsConnection.h"

#include <string>

namespace mirel {

/// The beginning, up to a point, of subjects that nobody else uses. `NatsError`.
inline std::string newInbox() {
    natsInbox* made = nullptr;
    if (natsInbox_Create(&made) != NATS_OK)
        throw NatsError(0, "there is no memory for an inbox");
    std::string inbox = std::string(made) + ".";
    natsInbox_Destroy(made);
    return inbox;
}

} // namespace mirel
