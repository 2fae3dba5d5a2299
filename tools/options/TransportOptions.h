#pragma once

#include "channels/open/Transports.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace mirel {

/// The options of all transports on a program's command line. To be kept until that is parsed.
class TransportOptions {
public:
    /// Those of which side: `&Transport::channelOptions` or `&Transport::callerOptions`.
    using Side = std::vector<TransportOption> (Transport::*)();

    TransportOptions(CLI::App& app, const Transports& transports, Side side);

    TransportOptions(const TransportOptions&) = delete;
    TransportOptions& operator=(const TransportOptions&) = delete;

    /// After the parsing. Throws CLI's error when an option of another transport than the address's
    /// was given, and `MirelException` when the address is none's.
    void check(const std::string& url) const;

    /// After the parsing: what was asked for instead of serving; returns what to tell about it.
    const std::function<std::string()>& instead() const { return m_instead; }

private:
    CLI::Option* add(CLI::App& app, const TransportOption& option);

    const Transports& m_transports;
    std::vector<std::pair<const Transport*, const CLI::Option*>> m_options;
    std::function<std::string()> m_instead;
};

} // namespace mirel
