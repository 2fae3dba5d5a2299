#pragma once

#include "standalone/Answer.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

class CommsChannelDataContainerMessage;

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
/// A caller should have at most 1000 requests on their way: a service drops answers beyond what
/// ZeroMQ keeps for a caller that does not take them.
class ZmqCaller {
public:
    /// Connects. `MirelException` with one clear text when there is no service within the patience,
    /// or when the two sides do not agree about CURVE.
    explicit ZmqCaller(const ZmqCallerOptions& options);

    /// Sends what has been given to `send` first, waiting at most a second.
    ~ZmqCaller();

    ZmqCaller(const ZmqCaller&) = delete;
    ZmqCaller& operator=(const ZmqCaller&) = delete;

    /// False when the message could not be handed over for `patience` because the service takes no
    /// more. `MirelException` for a message that is too large.
    bool send(CommsChannelDataContainerMessage& msg, std::chrono::milliseconds patience);

    /// The next answer; nothing when none arrives for `patience`. `MirelException` for bytes that
    /// are no answer.
    std::optional<Answer> receive(std::chrono::milliseconds patience);

    /// Whether the service is there now. A connection that is lost is looked for again; what is sent
    /// meanwhile is kept.
    bool connected();

private:
    class Connection;
    const std::size_t m_maxMessageBytes;
    const std::unique_ptr<Connection> m_connection;
};

} // namespace mirel
