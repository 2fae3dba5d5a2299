#pragma once

#include <set>
#include <string>
#include <zmq.hpp>

namespace mirel {

/// Answers ZeroMQ's question whether a caller may connect (ZAP), by the caller's CURVE public key.
/// Used by one thread at a time, the one that owns the channel's socket.
class ZmqAdmission {
public:
    /// To be made before the channel's socket is bound; later callers would not be asked about.
    ZmqAdmission(zmq::context_t& context, std::set<std::string> allowedKeys);

    /// Answers the questions that wait.
    void answerQuestions();

    zmq::socket_t& socket() { return m_socket; }

private:
    bool mayConnect(const std::string& mechanism, const std::string& key) const;

    const std::set<std::string> m_allowedKeys;
    zmq::socket_t m_socket;
};

} // namespace mirel
