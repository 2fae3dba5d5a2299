#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mirel {

/// Where a service is found on NATS, and what its parts are called there. The service's name is the
/// name of its stream, and the first token of every subject.
class NatsAddress {
public:
    /// `nats://HOST:PORT[,HOST:PORT...]/SERVICE`, `tls://` for encrypted connections; without a
    /// port 4222. `MirelException` for anything else.
    explicit NatsAddress(const std::string& url);

    const std::string& url() const { return m_url; }
    const std::vector<std::string>& servers() const { return m_servers; } ///< URL of each
    bool encrypted() const { return m_encrypted; }

    const std::string& stream() const { return m_service; }
    std::string requests() const { return m_service + ".requests.*.*.*.*.*"; }
    std::string requests(unsigned partition) const;

    /// A caller as subjects have it: USER.NAME. The server's permissions go by the user's name
    /// there, so that no user can take the place of another one's caller. "-": it has none.
    static std::string caller(const std::string& user, const std::string& name);

    /// `run` is one process of the caller. `line` stands for one source, which is what a caller
    /// sends under one source channel, in its order.
    std::string requests(unsigned partition, const std::string& caller, const std::string& run,
                         const std::string& line) const;

    /// What a subject of a request says.
    struct Request {
        unsigned long partition;
        std::string caller; ///< USER.NAME
    };
    /// Nothing when it is no such subject of this service.
    std::optional<Request> parseRequest(std::string_view subject) const;

    std::string answers(const std::string& caller) const {
        return m_service + ".answers." + caller;
    }

    /// The beginning, up to a point and the host's name, of what a host is sent: by the server,
    /// which delivers there, and by callers, which confirm answers there.
    std::string hosts() const { return m_service + ".hosts."; }

    /// The beginning, up to a point, of what that caller confirms answers on, behind the host
    /// and a point. The end is the number of an answer, or 0: then the numbers are in the body.
    static std::string confirmations(const std::string& caller);

    /// Nothing when it is no such subject.
    static std::optional<std::string> callerOfConfirmations(std::string_view subject);

    std::string deadLetterStream() const { return m_service + "-dead"; }
    std::string deadLetters() const { return m_service + ".dead"; }
    std::string leases() const { return m_service + "-leases"; }     ///< a bucket
    std::string attempts() const { return m_service + "-attempts"; } ///< a bucket

    /// Whether the text can be a token of a subject: letters, digits, - and _.
    static bool isToken(const std::string& text);

    /// The text with an underscore for each character that no token may have.
    static std::string tokenOf(std::string text);

private:
    std::string m_url;
    std::string m_service;
    std::vector<std::string> m_servers;
    bool m_encrypted = false;
};

} // namespace mirel
