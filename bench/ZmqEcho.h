#pragma once

#include "bench/Echo.h"

namespace bench {

/// The channel of `mirel-host`, and the caller of `mirel-call`.
std::unique_ptr<EchoService> serveMirelZmqEcho(const std::string& url);
std::unique_ptr<EchoCaller> callMirelZmqEcho(const std::string& url, int requests, int sources);

/// As little as ZeroMQ can do it with: a ROUTER that sends back, and a DEALER. Knows no sources.
std::unique_ptr<EchoService> serveBareZmqEcho(const std::string& url);
std::unique_ptr<EchoCaller> callBareZmqEcho(const std::string& url, int requests, int sources);

} // namespace bench
