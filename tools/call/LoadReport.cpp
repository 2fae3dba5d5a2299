#include "call/LoadReport.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iomanip>
#include <string>

namespace mirel {

namespace {

using Latencies = std::vector<Exchange::Clock::duration>;

/// The smallest latency that at least this share of the requests did not exceed; the list is
/// sorted.
std::int64_t microseconds(const Latencies& latencies, double share) {
    const auto rank =
        static_cast<std::size_t>(std::ceil(share * static_cast<double>(latencies.size())));
    const auto latency = latencies[std::max<std::size_t>(rank, 1) - 1];
    return std::chrono::duration_cast<std::chrono::microseconds>(latency).count();
}

/// The list is sorted and not empty.
void writeLatencies(std::ostream& out, const Latencies& latencies, int width) {
    out << "p50 " << std::setw(width) << microseconds(latencies, 0.5) << " us, p99 "
        << std::setw(width) << microseconds(latencies, 0.99) << " us, max " << std::setw(width)
        << microseconds(latencies, 1.0) << " us\n";
}

} // namespace

void write(std::ostream& out, LoadReport report) {
    Latencies all;
    for (auto& [priority, latencies] : report.latencies) {
        std::sort(latencies.begin(), latencies.end());
        all.insert(all.end(), latencies.begin(), latencies.end());
    }
    std::sort(all.begin(), all.end());
    const auto answered = static_cast<double>(all.size());
    out << "requests:   " << report.requests << " from " << report.sources << " sources\n"
        << "throughput: " << std::fixed << std::setprecision(0) << answered / report.time.count()
        << " answers/s (" << std::setprecision(2) << report.time.count() << " s)\n";
    if (!all.empty()) {
        const bool compared = report.latencies.size() > 1;
        const auto digits = std::to_string(microseconds(all, 1.0)).size(); // no figure has more
        const int width = compared ? static_cast<int>(digits) : 0;
        writeLatencies(out << "latency:    ", all, width);
        if (compared)
            for (const auto& [priority, latencies] : report.latencies)
                writeLatencies(out << "priority " << priority << ": ", latencies, width);
    }
    out << "failed:     " << report.outcome.failed << '\n';
    if (!report.firstFailure.empty())
        out << "            the first: " << report.firstFailure << '\n';
    if (report.outcome.sentAgain > 0)
        out << "sent again: " << report.outcome.sentAgain << ", because the service had no room\n";
    out << "unanswered: " << report.outcome.unanswered << '\n' << "in order:   ";
    if (report.outcome.outOfOrder + report.outcome.unexpected == 0)
        out << "yes\n";
    else
        out << "no (" << report.outcome.outOfOrder << " overtaken, " << report.outcome.unexpected
            << " answers to nothing)\n";
    if (report.outcome.skipped != 0)
        out << "skipped:    " << report.outcome.skipped << " messages that are no answers\n";
}

} // namespace mirel
