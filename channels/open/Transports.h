#pragma once

#include "channels/open/Transport.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace mirel {

/// The transports that a program knows. One thread.
class Transports {
public:
    void add(std::unique_ptr<Transport> transport) { m_all.push_back(std::move(transport)); }
    const std::vector<std::unique_ptr<Transport>>& all() const { return m_all; }

    /// How all their addresses look, for a text.
    std::string addresses() const;

    // By the address; `MirelException` with one clear text when it is none's, or cannot be opened.
    const Transport& of(const std::string& url) const;
    std::unique_ptr<ServiceChannel> openChannel(const ChannelSettings& settings) const;
    std::unique_ptr<Caller> openCaller(const CallerSettings& settings) const;

private:
    std::vector<std::unique_ptr<Transport>> m_all;
};

} // namespace mirel
