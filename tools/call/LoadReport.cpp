#include "call/LoadReport.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iomanip>

namespace mirel {

namespace {

/// The smallest latency that at least this share of the requests did not exceed; the list is
/// sorted.
std::int64_t microseconds(const std::vector<Exchange::Clock::duration>& latencies, double share) {
    const auto rank =
        static_cast<std::size_t>(std::ceil(share * static_cast<double>(latencies.size())));
    const auto latency = latencies[std::max<std::size_t>(rank, 1) - 1];
    return std::chrono::duration_cast<std::chrono::microseconds>(latency).count();
}

} // namespace

void write(std::ostream& out, LoadReport report) {
    std::sort(report.latencies.begin(), report.latencies.end());
    const auto answered = static_cast<double>(report.latencies.size());
    out << "requests:   " << report.requests << " from " << report.sources << " sources\n"
        << "throughput: " << std::fixed << std::setprecision(0) << answered / report.time.count()
        << " answers/s (" << std::setprecision(2) << report.time.count() << " s)\n";
    if (!report.latencies.empty())
        out << "latency:    p50 " << microseconds(report.latencies, 0.5) << " us, p99 "
            << microseconds(report.latencies, 0.99) << " us, max "
            << microseconds(report.latencies, 1.0) << " us\n";
    out << "failed:     " << report.outcome.failed << '\n';
    if (!report.firstFailure.empty())
        out << "            the first: " << report.firstFailure << '\n';
    out << "unanswered: " << report.outcome.unanswered << '\n' << "in order:   ";
    if (report.outcome.outOfOrder + report.outcome.unexpected == 0)
        out << "yes\n";
    else
        out << "no (" << report.outcome.outOfOrder << " overtaken, " << report.outcome.unexpected
            << " answers to nothing)\n";
}

} // namespace mirel
