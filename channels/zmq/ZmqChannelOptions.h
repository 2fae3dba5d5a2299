#pragma once

#include "channels/Shares.h"

#include <cstddef>
#include <string>

namespace mirel {

/// How a service's channel between processes is set up.
struct ZmqChannelOptions {
    /// Where the service listens: `ipc://PATH` or `tcp://ADDRESS:PORT`.
    std::string url;

    /// Largest message taken, as encoded, and largest data of an answer, in bytes; 1 to 1 GiB. A
    /// message of up to four times this is read and refused with an answer; a caller that sends
    /// more than that is disconnected before its message is in memory.
    std::size_t maxMessageBytes = std::size_t{1} << 20;

    /// Messages kept for the executor. When they are this many, callers are made to wait.
    std::size_t queueLength = 1000;

    /// What may be unanswered. A request beyond it is refused at once.
    ShareLimits shares;

    /// Bytes of answers that a caller has not taken, and of all callers. One beyond them is
    /// dropped.
    std::size_t callerAnswerBytes = std::size_t{32} << 20;
    std::size_t answerBytes = std::size_t{64} << 20;

    /// Lets `tcp://` without CURVE listen on addresses that other machines can reach. Whoever can
    /// reach the port can call the service and read along.
    bool allowPlainTcpBeyondLoopback = false;

    /// The service's secret key (a NAME.key, see ZmqSecurity.h), which switches CURVE on: callers
    /// must know the service's public key, and everything is encrypted. Empty: off.
    std::string curveKeyFile;

    /// The public keys of the callers that are let in; needs CURVE. Empty: any caller that knows
    /// the service's public key.
    std::string allowedCallersFile;
};

} // namespace mirel
