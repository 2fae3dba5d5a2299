#include "host/Summary.h"

#include "channels/ChannelCounters.h"
#include "runtime/reports/Reports.h"

#include <iomanip>

namespace mirel {

void writeSummary(std::ostream& out, const std::string& interface, const ChannelCounters& channel,
                  unsigned long mostWorkers, unsigned long restarts,
                  std::chrono::duration<double> served) {
    const unsigned long requests = channel.requests;
    const unsigned long answered = channel.done + channel.failed + channel.unserved;
    const unsigned long read = requests + channel.timerEvents + channel.legacyMessages;
    out << "served " << interface << " for " << std::fixed << std::setprecision(1) << served.count()
        << " s\n"
        << "  messages: " << requests << " requests, " << channel.timerEvents << " timer events, "
        << channel.legacyMessages << " legacy; " << channel.refused.count() << " refused, "
        << channel.received - read << " not read\n"
        << "  requests: " << channel.done << " done, " << channel.failed << " failed, "
        << channel.unserved << " not served, " << requests - answered << " not answered; "
        << channel.answersDropped.count() << " answers dropped\n"
        << "  reports:  " << publishedReports() << " published\n"
        << "  workers:  " << mostWorkers << " at most at once\n";
    if (restarts > 0)
        out << "  loop:     started again " << restarts << " times after failures\n";
}

} // namespace mirel
