#pragma once

#include <memory>
#include <nats/nats.h>

namespace mirel {

template <auto destroy>
struct NatsDestroy {
    template <typename T>
    void operator()(T* object) const {
        destroy(object);
    }
};

// Owners of the engine's objects.
using NatsMessage = std::unique_ptr<natsMsg, NatsDestroy<natsMsg_Destroy>>;
using NatsSubscription = std::unique_ptr<natsSubscription, NatsDestroy<natsSubscription_Destroy>>;

} // namespace mirel
