#pragma once

#include "channels/nats/publish/NatsCallerOptions.h"
#include "channels/nats/read/NatsChannelOptions.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

class CommsChannelIfc;

namespace CLI {
class App;
}

namespace mirel {

class Caller;
struct ChannelCounters;

/// Whether the address is one of NATS.
bool isNats(const std::string& url);

/// A channel, and what its host tells about it.
struct ServedChannel {
    std::unique_ptr<CommsChannelIfc> channel;
    std::string url;
    std::shared_ptr<const ChannelCounters> counters;

    /// To be called when the executor has been shut down; see NatsChannel.
    std::function<void()> leaveRest = [] {};
};

// Both: `MirelException` also when the programs were built without NATS.
ServedChannel openNatsChannel(const NatsChannelOptions& options);
std::unique_ptr<Caller> newNatsCaller(const NatsCallerOptions& options);

/// The options of both programs, in a group of their own.
CLI::App* addNatsOptions(CLI::App& app, NatsConnectionOptions& options);

/// Throws CLI's error when an option of the group was given for another kind of channel, or one of
/// `others` for a channel over NATS.
void checkNatsOptions(const CLI::App& app, const CLI::App& group, const std::string& url,
                      const std::vector<std::string>& others);

} // namespace mirel
