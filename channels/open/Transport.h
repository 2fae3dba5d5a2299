#pragma once

#include "channels/open/TransportOption.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace mirel {

class Caller;
class ServiceChannel;

/// What is said about a service's channel, whatever carries it.
struct ChannelSettings {
    std::string url;
    std::size_t maxMessageBytes = std::size_t{1} << 20; ///< of a message and of an answer
    std::size_t maxUnfinished = 10000;                  ///< unanswered requests
    std::size_t maxWorkers = 0;                         ///< 0: the service needs none

    /// May be asked while the channel is opened, and never afterwards; true ends the attempt.
    std::function<bool()> giveUp = [] { return false; };
};

/// The same for a caller.
struct CallerSettings {
    std::string url;
    std::size_t maxMessageBytes = std::size_t{1} << 20;
    std::chrono::milliseconds patience{5000}; ///< for connecting
};

/// A way to carry messages between processes: its addresses, its options, and how it is opened. The
/// options belong to the object, so who needs two channels with different ones makes two.
///
/// A transport that can be left out when building comes in two classes: one that has its addresses
/// and its options and is always there, and one derived from it that opens. The first alone stands
/// for the transport in a build without it, and says so where it should open.
class Transport {
public:
    virtual ~Transport() = default;
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    /// How its addresses look, such as ipc://PATH.
    const std::vector<std::string>& addresses() const { return m_addresses; }

    /// Their beginnings, for a text: "ipc:// and tcp://".
    std::string schemes() const;

    bool fits(const std::string& url) const;

    /// They point into the transport. To be set before it opens anything.
    virtual std::vector<TransportOption> channelOptions() = 0;
    virtual std::vector<TransportOption> callerOptions() = 0;

    /// Under which a caller is known from call to call, if an option gives it a name; else empty.
    virtual std::string callerName() const { return {}; }

    virtual bool built() const { return false; }

    /// "this program was built without ..."
    std::string whyLeftOut() const;

    // `MirelException` with one clear text when it cannot.
    virtual std::unique_ptr<ServiceChannel> openChannel(const ChannelSettings& settings) const;
    virtual std::unique_ptr<Caller> openCaller(const CallerSettings& settings) const;

protected:
    /// `buildOption` is the one of CMake that leaves it out.
    Transport(std::string name, std::string buildOption, std::vector<std::string> addresses);

private:
    const std::string m_name;
    const std::string m_buildOption;
    const std::vector<std::string> m_addresses;
};

} // namespace mirel
