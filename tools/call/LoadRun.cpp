#include "call/LoadRun.h"

#include "call/CallOptions.h"
#include "call/Exchange.h"
#include "call/LoadReport.h"
#include "call/ProgressBar.h"
#include "call/Timeline.h"

#include <iostream>
#include <optional>
#include <string_view>
#include <utility>

namespace mirel {

namespace {

class Measurement : public Exchange::Listener {
public:
    Measurement(LoadReport& report, ProgressBar& bar, std::optional<Timeline>& timeline)
        : m_report(report),
          m_bar(bar),
          m_timeline(timeline) {}

    void sent(const std::string&) override {}

    void answered(const Answer& answer, MirelThreadPriority priority,
                  Exchange::Clock::duration latency) override {
        m_report.latencies[priority].push_back(latency);
        if (!answer.succeeded && m_report.firstFailure.empty())
            m_report.firstFailure = answer.sourceChannel + ": " + answer.data;
        m_bar.show(++m_answers);
        if (m_timeline)
            m_timeline->answered();
    }

    void unanswered(const std::string&) override {}

private:
    LoadReport& m_report;
    ProgressBar& m_bar;
    std::optional<Timeline>& m_timeline;
    unsigned long m_answers = 0;
};

std::string replaced(std::string text, std::string_view placeholder, const std::string& value) {
    for (std::size_t at = text.find(placeholder); at != std::string::npos;
         at = text.find(placeholder, at + value.size()))
        text.replace(at, placeholder.size(), value);
    return text;
}

/// The request number `index` of the load, from 0. Sources take turns.
CommsChannelDataContainerMessage loadRequest(const CallOptions& options, unsigned long index) {
    const unsigned long turn = index / options.sources; // of this source, from 0
    Sender sender = options.sender;
    sender.source += "-" + std::to_string(index % options.sources + 1);
    if (!options.priorities.empty())
        sender.priority = options.priorities[turn % options.priorities.size()];
    std::string data = replaced(options.data, "{n}", std::to_string(turn + 1));
    data = replaced(std::move(data), "{source}", sender.source);
    auto msg = makeRequest(sender, options.interface, options.protocol, data);
    msg.channel() = options.connection.url;
    return msg;
}

} // namespace

bool runLoad(const CallOptions& options) {
    const std::unique_ptr<Caller> caller = options.transports.openCaller(options.connection);
    LoadReport report;
    report.requests = options.load;
    report.sources = options.sources;
    std::optional<Timeline> timeline;
    if (!options.timeline.empty())
        timeline.emplace(options.timeline);
    const auto begin = Exchange::Clock::now();
    {
        ProgressBar bar(options.load);
        Measurement measurement(report, bar, timeline);
        Exchange exchange(*caller, options.window, options.deadline, measurement);
        for (unsigned long index = 0; index < options.load; ++index)
            exchange.send(loadRequest(options, index));
        exchange.finish();
        report.outcome = exchange.outcome();
    }
    report.time = Exchange::Clock::now() - begin;
    if (timeline)
        timeline->finish();
    const bool good = report.outcome.good();
    write(std::cout, std::move(report));
    return good;
}

} // namespace mirel
