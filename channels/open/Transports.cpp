#include "channels/open/Transports.h"

#include "channels/Caller.h"
#include "channels/ServiceChannel.h"
#include "framework/MirelException.h"

namespace mirel {

std::string Transports::addresses() const {
    std::string text;
    for (const auto& transport : m_all)
        for (const std::string& address : transport->addresses())
            text.append(text.empty() ? "" : ", ").append(address);
    return text;
}

const Transport& Transports::of(const std::string& url) const {
    for (const auto& transport : m_all)
        if (transport->fits(url))
            return *transport;
    throw MirelException("'" + url + "' is no address of a service; it looks like one of " +
                             addresses(),
                         __FILE__, __LINE__);
}

std::unique_ptr<ServiceChannel> Transports::openChannel(const ChannelSettings& settings) const {
    return of(settings.url).openChannel(settings);
}

std::unique_ptr<Caller> Transports::openCaller(const CallerSettings& settings) const {
    return of(settings.url).openCaller(settings);
}

} // namespace mirel
