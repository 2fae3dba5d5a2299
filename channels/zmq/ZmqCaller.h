#pragma once

#include "channels/Caller.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace mirel {

struct ZmqCallerOptions {
    /// The service's address: `ipc://PATH` or `tcp://HOST:PORT`.
    std::string url;

    /// How long to wait for the service when connecting.
    std::chrono::milliseconds patience{5000};

    /// Largest message sent, as encoded, in bytes; the service has its own limit.
    std::size_t maxMessageBytes = std::size_t{1} << 20;

    /// The service's public key (a NAME.pub, see ZmqSecurity.h), which switches CURVE on. Empty:
    /// off.
    std::string serverKeyFile;

    /// The caller's own secret key (a NAME.key), for services that let in known callers only.
    /// Empty: a new one.
    std::string curveKeyFile;
};

/// One caller of a service in another process. Used by one thread at a time.
///
/// A caller should have at most 1000 requests on their way, and no more than its `share`: a service
/// drops answers beyond what it keeps for a caller that does not take them.
class ZmqCaller : public Caller {
public:
    /// Connects. `MirelException` with one clear text when there is no service within the patience,
    /// or when the two sides do not agree about CURVE.
    explicit ZmqCaller(const ZmqCallerOptions& options);

    /// Sends what has been given to `send` first, waiting at most a second.
    ~ZmqCaller() override;

    ZmqCaller(const ZmqCaller&) = delete;
    ZmqCaller& operator=(const ZmqCaller&) = delete;

    CallerShare share() const override;
    bool send(CommsChannelDataContainerMessage& msg, std::chrono::milliseconds patience) override;
    std::optional<Answer> receive(std::chrono::milliseconds patience) override;
    bool connected() override;

private:
    class Connection;
    const std::size_t m_maxMessageBytes;
    std::uint64_t m_refusalsKnown = 0; ///< number of the last refusal received
    const std::unique_ptr<Connection> m_connection;
};

} // namespace mirel
