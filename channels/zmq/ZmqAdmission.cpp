#include "channels/zmq/ZmqAdmission.h"

#include "channels/Printable.h"

#include <array>
#include <cstdint>
#include <iterator>
#include <utility>
#include <vector>
#include <zmq_addon.hpp>

namespace mirel {

namespace {

// The frames of a question, as ZeroMQ's authentication protocol lays them down.
enum Frame : std::size_t { eVersion, eRequest, eDomain, eAddress, eIdentity, eMechanism, eKey };

} // namespace

ZmqAdmission::ZmqAdmission(zmq::context_t& context, std::set<std::string> allowedKeys,
                           const std::string& url)
    : m_allowedKeys(std::move(allowedKeys)),
      m_refused("ZmqChannel", "callers of " + url),
      m_socket(context, zmq::socket_type::rep) {
    m_socket.set(zmq::sockopt::linger, 0);
    m_socket.bind("inproc://zeromq.zap.01");
}

void ZmqAdmission::answerQuestions() {
    for (;;) {
        std::vector<zmq::message_t> question;
        if (!zmq::recv_multipart(m_socket, std::back_inserter(question), zmq::recv_flags::dontwait))
            return;
        const bool admitted = question.size() > eKey && mayConnect(question[eMechanism].to_string(),
                                                                   question[eKey].to_string(),
                                                                   question[eAddress].to_string());
        const std::string request =
            question.size() > eRequest ? question[eRequest].to_string() : std::string();
        const std::array<zmq::const_buffer, 6> reply{
            zmq::str_buffer("1.0"),
            zmq::buffer(request),
            admitted ? zmq::str_buffer("200") : zmq::str_buffer("400"),
            admitted ? zmq::str_buffer("OK") : zmq::str_buffer("caller not allowed"),
            zmq::const_buffer(),
            zmq::const_buffer(),
        };
        zmq::send_multipart(m_socket, reply);
    }
}

bool ZmqAdmission::mayConnect(const std::string& mechanism, const std::string& key,
                              const std::string& address) {
    if (mechanism != "CURVE" || key.size() % 4 != 0)
        return false;
    std::vector<char> text(key.size() / 4 * 5 + 1);
    zmq_z85_encode(text.data(), reinterpret_cast<const std::uint8_t*>(key.data()), key.size());
    if (m_allowedKeys.contains(text.data()))
        return true;
    m_refused.refuse(std::string("its public key, ") + text.data() +
                     ", is not one of the allowed callers', at " + printable(address));
    return false;
}

} // namespace mirel
