#pragma once

#include "channels/nats/wire/NatsHandles.h"

#include <string>

namespace mirel {

class NatsAddress;
struct NatsConnectionOptions;

using NatsOptions = std::unique_ptr<natsOptions, NatsDestroy<natsOptions_Destroy>>;

/// The NATS library's options for a connection as `wanted`. `MirelException` when they contradict
/// each other, or a file cannot be read.
NatsOptions newNatsOptions(const NatsAddress& address, const NatsConnectionOptions& wanted);

/// What nobody else who is let in has: password, credentials or key. Empty: we have nothing of the
/// kind. `MirelException` when the file cannot be read.
std::string secretOf(const NatsConnectionOptions& wanted);

} // namespace mirel
