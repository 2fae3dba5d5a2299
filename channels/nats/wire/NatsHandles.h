#pragma once

#include <cstddef>
#include <memory>
#include <nats/nats.h>
#include <string>
#include <string_view>

namespace mirel {

template <auto destroy>
struct NatsDestroy {
    template <typename T>
    void operator()(T* object) const {
        destroy(object);
    }
};

// Owners of the NATS library's objects.
using NatsMessage = std::unique_ptr<natsMsg, NatsDestroy<natsMsg_Destroy>>;
using NatsSubscription = std::unique_ptr<natsSubscription, NatsDestroy<natsSubscription_Destroy>>;

/// Of the library's last failure on this thread.
inline std::string reasonOf(natsStatus status) {
    natsStatus last = NATS_OK;
    const char* const text = nats_GetLastError(&last);
    return last == status && text && *text ? text : natsStatus_GetText(status);
}

/// Refers to the message.
inline std::string_view bytesOf(const natsMsg* msg) {
    return {natsMsg_GetData(msg), static_cast<std::size_t>(natsMsg_GetDataLength(msg))};
}

} // namespace mirel
