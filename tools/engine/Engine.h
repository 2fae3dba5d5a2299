#pragma once

#include "channels/nats/publish/NatsCallerOptions.h"
#include "channels/nats/read/NatsChannelOptions.h"

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace mirel {

class Caller;
class ServiceChannel;

/// Whether the address is one of NATS.
bool isNats(const std::string& url);

// Both: `MirelException` also when the programs were built without NATS.
std::unique_ptr<ServiceChannel> openNatsChannel(const NatsChannelOptions& options);
std::unique_ptr<Caller> newNatsCaller(const NatsCallerOptions& options);

/// The options of both programs, in a group of their own.
CLI::App* addNatsOptions(CLI::App& app, NatsConnectionOptions& options);

/// Throws CLI's error when an option of the group was given for another kind of channel, or one of
/// `others` for a channel over NATS.
void checkNatsOptions(const CLI::App& app, const CLI::App& group, const std::string& url,
                      const std::vector<std::string>& others);

} // namespace mirel
