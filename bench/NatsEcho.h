#pragma once

#include "bench/Echo.h"
#include "channels/nats/read/NatsChannelOptions.h"

namespace bench {

/// What both services are served with: one partition, and a copy of each request on each server of
/// the address.
mirel::NatsChannelOptions natsEchoOptions(const std::string& url);

/// The channel of `mirel-host`, and the caller of `mirel-call`.
std::unique_ptr<EchoService> serveMirelNatsEcho(const std::string& url);
std::unique_ptr<EchoCaller> callMirelNatsEcho(const std::string& url, int requests, int sources);

/// The same connection, stream and consumer, and one thread at each end that does as little as can
/// be done with them. Requests have ids by which the engine knows repetitions, and of each source
/// one at a time is on its way into the stream. Answers are not confirmed, and nothing is repeated.
std::unique_ptr<EchoService> serveBareNatsEcho(const std::string& url);
std::unique_ptr<EchoCaller> callBareNatsEcho(const std::string& url, int requests, int sources);

} // namespace bench
