#include "channels/open/Transport.h"

#include "channels/Caller.h"
#include "channels/ServiceChannel.h"
#include "framework/MirelException.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace mirel {

namespace {

std::string_view schemeOf(std::string_view address) {
    constexpr std::string_view end = "://";
    return address.substr(0, address.find(end) + end.size());
}

} // namespace

Transport::Transport(std::string name, std::string buildOption, std::vector<std::string> addresses)
    : m_name(std::move(name)),
      m_buildOption(std::move(buildOption)),
      m_addresses(std::move(addresses)) {}

std::string Transport::schemes() const {
    std::string text;
    for (const std::string& address : m_addresses)
        text.append(text.empty() ? "" : " and ").append(schemeOf(address));
    return text;
}

bool Transport::fits(const std::string& url) const {
    return std::any_of(m_addresses.begin(), m_addresses.end(), [&url](const std::string& address) {
        return url.starts_with(schemeOf(address));
    });
}

std::string Transport::whyLeftOut() const {
    return "this program was built without " + m_name + " (" + m_buildOption + ")";
}

std::unique_ptr<ServiceChannel> Transport::openChannel(const ChannelSettings& settings) const {
    throw MirelException(settings.url + ": " + whyLeftOut(), __FILE__, __LINE__);
}

std::unique_ptr<Caller> Transport::openCaller(const CallerSettings& settings) const {
    throw MirelException(settings.url + ": " + whyLeftOut(), __FILE__, __LINE__);
}

} // namespace mirel
