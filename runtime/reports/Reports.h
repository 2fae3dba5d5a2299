#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

class MirelException;

namespace mirel {

/// Called on the thread that publishes, possibly by several at once. What it throws is logged, and
/// the other subscribers are called all the same.
using ReportSubscriber = std::function<void(const MirelException&)>;

/// Keeps a subscription for as long as it lives. Moved, not copied.
class [[nodiscard]] ReportSubscription {
public:
    ReportSubscription() = default;
    explicit ReportSubscription(unsigned long id) : m_id(id) {}
    ReportSubscription(ReportSubscription&& other) noexcept;
    ReportSubscription& operator=(ReportSubscription&& other) noexcept;

    /// Returns when no other thread is inside the subscriber any more. A subscriber must not end
    /// its own subscription.
    ~ReportSubscription();

private:
    unsigned long m_id = 0;
};

/// Adds a subscriber to the process's `ExceptionPublisher`.
ReportSubscription subscribeToReports(ReportSubscriber subscriber);

/// The subscriber that is there from the start writes each report with its causes to the log, at
/// level 2. This turns it off or on.
void writeReportsToLog(bool on);

/// Reports published by this process so far.
unsigned long publishedReports();

/// What stands before the request's data in a report's text. They are its end.
constexpr std::string_view kRequestData = "\n Original request to Service: ";

/// The report's text followed by "\n caused by: " and the text of each cause, outermost first, each
/// with its file and line. Of a request's data at most `dataBytes`.
std::string describe(const MirelException& report, std::size_t dataBytes = std::string::npos);

} // namespace mirel
