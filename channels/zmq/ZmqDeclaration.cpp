#include "channels/zmq/ZmqDeclaration.h"

#include "framework/MirelException.h"

namespace mirel {

using Range = TransportOption::Range;
using Text = TransportOption::Text;

namespace {

constexpr Range kRequests{1, 1000000};
constexpr Range kBytes{1000, 1 << 30};

} // namespace

ZmqDeclaration::ZmqDeclaration()
    : Transport("ZeroMQ", "MIREL_ZEROMQ", {"ipc://PATH", "tcp://HOST:PORT"}) {}

std::vector<TransportOption> ZmqDeclaration::channelOptions() {
    return {
        {"--queue", &m_channel.queueLength,
         "Messages kept for the service before callers are made to wait", Range{1, 1000000}},
        {"--max-unfinished-bytes", &m_channel.shares.total.bytes,
         "Bytes of unanswered requests, of all callers", kBytes},
        {"--caller-requests", &m_channel.shares.caller.requests,
         "Unanswered requests of one caller; what is beyond a share is refused", kRequests},
        {"--caller-bytes", &m_channel.shares.caller.bytes, "The same in bytes", kBytes},
        {"--source-requests", &m_channel.shares.source.requests,
         "Unanswered requests of one source of a caller", kRequests},
        {"--source-bytes", &m_channel.shares.source.bytes, "The same in bytes", kBytes},
        {"--caller-answer-bytes", &m_channel.callerAnswerBytes,
         "Bytes of answers that one caller has not taken; what is beyond is dropped", kBytes},
        {"--answer-bytes", &m_channel.answerBytes, "The same for all callers", kBytes},
        {"--allow-plain-tcp", &m_channel.allowPlainTcpBeyondLoopback,
         "Let tcp:// without CURVE listen beyond this machine: everyone who reaches the port may "
         "call, and can read along"},
        {"--curve-key", &m_channel.curveKeyFile,
         "The service's secret key file; switches CURVE encryption on", Text{"FILE"}},
        {"--allowed-callers", &m_channel.allowedCallersFile,
         "File with the public keys of the callers let in, one a line; needs --curve-key. Without "
         "it, everyone who knows the service's public key may call",
         Text{"FILE"}},
        {"--generate-keys",
         [this](const std::string& name) {
             writeNewKeys(name);
             return "wrote " + name + ".key (secret) and " + name + ".pub";
         },
         "Write a new key pair to NAME.key (secret) and NAME.pub, and exit", Text{"NAME"}},
    };
}

std::vector<TransportOption> ZmqDeclaration::callerOptions() {
    return {
        {"--server-key", &m_caller.serverKeyFile,
         "The service's public key file; switches CURVE encryption on", Text{"FILE"}},
        {"--curve-key", &m_caller.curveKeyFile,
         "Your own secret key file, for a service that lets in known callers only", Text{"FILE"}},
    };
}

void ZmqDeclaration::writeNewKeys(const std::string&) const {
    throw MirelException(whyLeftOut(), __FILE__, __LINE__);
}

} // namespace mirel
