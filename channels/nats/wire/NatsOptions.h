#pragma once

#include "channels/nats/wire/NatsHandles.h"

namespace mirel {

class NatsAddress;
struct NatsConnectionOptions;

using NatsOptions = std::unique_ptr<natsOptions, NatsDestroy<natsOptions_Destroy>>;

/// The NATS library's options for a connection as `wanted`. `MirelException` when they contradict
/// each other, or a file cannot be read.
NatsOptions newNatsOptions(const NatsAddress& address, const NatsConnectionOptions& wanted);

} // namespace mirel
