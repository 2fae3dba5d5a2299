#include "channels/nats/wire/NatsAddress.h"

#include "framework/MirelException.h"

#include <algorithm>
#include <charconv>
#include <sstream>

namespace mirel {

namespace {

constexpr std::string_view kPlain = "nats://";
constexpr std::string_view kEncrypted = "tls://";
constexpr const char* kRequests = ".requests.";
constexpr std::string_view kTaken = "taken.";
constexpr std::string_view kDefaultPort = ":4222";
constexpr std::size_t kLongestName = 200; ///< the server's limit for a stream is 255

[[noreturn]] void refuse(const std::string& url, const std::string& why) {
    throw MirelException(url + ": " + why +
                             "; an address looks like nats://HOST:PORT,HOST:PORT/SERVICE",
                         __FILE__, __LINE__);
}

bool mayBeInToken(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_';
}

bool hasPort(const std::string& server) {
    const std::size_t colon = server.find_last_of(":]"); // a colon within brackets is no port's
    return colon != std::string::npos && server[colon] == ':';
}

} // namespace

bool NatsAddress::isToken(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), &mayBeInToken);
}

std::string NatsAddress::caller(const std::string& user, const std::string& name) {
    return (user.empty() ? "-" : tokenOf(user)) + "." + name;
}

std::string NatsAddress::tokenOf(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return !mayBeInToken(c); }, '_');
    return text;
}

NatsAddress::NatsAddress(const std::string& url) : m_url(url) {
    m_encrypted = url.starts_with(kEncrypted);
    if (!m_encrypted && !url.starts_with(kPlain))
        refuse(url, "the scheme is neither nats:// nor tls://");
    const std::string_view scheme = m_encrypted ? kEncrypted : kPlain;
    const std::size_t slash = url.find('/', scheme.size());
    if (slash == std::string::npos)
        refuse(url, "the service's name is missing");
    m_service = url.substr(slash + 1);
    if (!isToken(m_service) || m_service.size() > kLongestName)
        refuse(url, "the service's name must have 1 to 200 letters, digits, - and _");

    std::istringstream list(url.substr(scheme.size(), slash - scheme.size()));
    for (std::string server; std::getline(list, server, ',');) {
        if (server.empty() || server.front() == ':' || server.find('@') != std::string::npos)
            refuse(url, "each server must be given as HOST:PORT");
        if (!hasPort(server))
            server += kDefaultPort;
        m_servers.push_back(std::string(scheme) + server);
    }
    if (m_servers.empty())
        refuse(url, "the server is missing");
}

std::string NatsAddress::requests(unsigned partition) const {
    return requests(partition, "*.*", "*", "*");
}

std::string NatsAddress::requests(unsigned partition, const std::string& caller,
                                  const std::string& run, const std::string& line) const {
    return m_service + kRequests + std::to_string(partition) + "." + caller + "." + run + "." +
           line;
}

std::optional<NatsAddress::Request> NatsAddress::parseRequest(std::string_view subject) const {
    const std::string beginning = m_service + kRequests;
    if (!subject.starts_with(beginning))
        return std::nullopt;
    subject.remove_prefix(beginning.size());
    Request request{};
    const char* const end = subject.data() + subject.size();
    const auto [point, error] = std::from_chars(subject.data(), end, request.partition);
    if (error != std::errc() || point == end || *point != '.')
        return std::nullopt;
    subject.remove_prefix(static_cast<std::size_t>(point + 1 - subject.data()));
    const std::size_t user = subject.find('.');
    if (user == std::string_view::npos)
        return std::nullopt;
    request.caller = subject.substr(0, subject.find('.', user + 1));
    return request;
}

std::string NatsAddress::confirmations(const std::string& caller) {
    return std::string(kTaken) + caller + ".";
}

std::optional<std::string> NatsAddress::callerOfConfirmations(std::string_view subject) {
    if (!subject.starts_with(kTaken))
        return std::nullopt;
    subject.remove_prefix(kTaken.size());
    return std::string(subject.substr(0, subject.rfind('.')));
}

} // namespace mirel
