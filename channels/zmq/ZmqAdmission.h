#pragma once

#include "channels/RefusalCounter.h"

#include <set>
#include <string>
#include <zmq.hpp>

namespace mirel {

/// Answers ZeroMQ's question whether a caller may connect (ZAP), by the caller's CURVE public key.
/// Used by one thread at a time, the one that owns the channel's socket.
class ZmqAdmission {
public:
    /// To be made before the channel's socket is bound; later callers would not be asked about. Who
    /// is refused is counted and logged, behind the channel's address.
    ZmqAdmission(zmq::context_t& context, std::set<std::string> allowedKeys,
                 const std::string& url);

    /// Answers the questions that wait.
    void answerQuestions();

    zmq::socket_t& socket() { return m_socket; }

private:
    bool mayConnect(const std::string& mechanism, const std::string& key,
                    const std::string& address);

    const std::set<std::string> m_allowedKeys;
    RefusalCounter m_refused;
    zmq::socket_t m_socket;
};

} // namespace mirel
