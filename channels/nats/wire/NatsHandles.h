#pragma once

#include <cstddef>
#include <memory>
#include <nats/nats.h>
#include <string_view>

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

/// Refers to the message.
inline std::string_view bytesOf(const natsMsg* msg) {
    return {natsMsg_GetData(msg), static_cast<std::size_t>(natsMsg_GetDataLength(msg))};
}

} // namespace mirel
