#pragma once

#include "bench/Echo.h"
#include "channels/Caller.h"
#include "framework/CommsChannelIfc.h"

namespace bench {

/// A service executor on the channel, with the workers of `mirel-host`.
std::unique_ptr<EchoService> serveMirelEcho(std::unique_ptr<CommsChannelIfc> channel);

std::unique_ptr<EchoCaller> callMirelEcho(std::unique_ptr<mirel::Caller> caller, int requests,
                                          int sources);

} // namespace bench
