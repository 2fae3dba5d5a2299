#include "host/Summary.h"

#include "channels/ChannelCounters.h"
#include "host/Tally.h"
#include "runtime/reports/Reports.h"

#include <iomanip>

namespace mirel {

void writeSummary(std::ostream& out, const std::string& interface, const Tally& tally,
                  const ChannelCounters& channel, unsigned long mostWorkers,
                  std::chrono::duration<double> served) {
    const unsigned long requests = tally.requests;
    const unsigned long answered = tally.done + tally.failed;
    const unsigned long read = requests + tally.timerEvents + tally.legacyMessages;
    out << "served " << interface << " for " << std::fixed << std::setprecision(1) << served.count()
        << " s\n"
        << "  messages: " << requests << " requests, " << tally.timerEvents << " timer events, "
        << tally.legacyMessages << " legacy; " << channel.refused.count() << " refused, "
        << channel.received - read << " not read\n"
        << "  requests: " << tally.done << " done, " << tally.failed << " failed, "
        << requests - answered << " not answered; " << channel.answersDropped.count()
        << " answers dropped\n"
        << "  reports:  " << publishedReports() << " published\n"
        << "  workers:  " << mostWorkers << " at most at once\n";
}

} // namespace mirel
