#include "framework/ExceptionPublisher.h"

#include "framework/Logging.h"
#include "framework/MirelException.h"
#include "runtime/reports/Reports.h"
#include "runtime/threads/CallGate.h"
#include "runtime/threads/Mutex.h"
#include "runtime/threads/PendingWakeUps.h"
#include "runtime/values/GuardedCall.h"

#include <atomic>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace {

constexpr const char* kComponent = "ExceptionPublisher";

struct Subscriber {
    explicit Subscriber(mirel::ReportSubscriber call) : function(std::move(call)) {}

    const mirel::ReportSubscriber function;
    mirel::CallGate gate;
};

struct Subscribers {
    std::atomic<unsigned long> published{0};
    std::atomic<bool> writeToLog{true};

    mirel::Mutex mutex;
    unsigned long lastId MIREL_GUARDED_BY(mutex) = 0;
    std::map<unsigned long, std::shared_ptr<Subscriber>> byId MIREL_GUARDED_BY(mutex);
};

/// Never destroyed: threads may publish until the process is gone.
Subscribers& subscribers() {
    static Subscribers& theSubscribers = *new Subscribers;
    return theSubscribers;
}

std::vector<std::shared_ptr<Subscriber>> currentSubscribers() {
    const mirel::Lock lock(subscribers().mutex);
    std::vector<std::shared_ptr<Subscriber>> current;
    current.reserve(subscribers().byId.size());
    for (const auto& [id, subscriber] : subscribers().byId)
        current.push_back(subscriber);
    return current;
}

/// A subscription that has ended meanwhile is not called any more: its gate is closed.
void call(Subscriber& subscriber, const MirelException& report) {
    const mirel::CallPass pass(subscriber.gate);
    if (pass)
        mirel::callGuarded(kComponent, "a subscriber to failure reports",
                           [&] { subscriber.function(report); });
}

/// If the mark is in another part of the text as well, more is cut, and never less.
std::string withDataCut(std::string text, std::size_t dataBytes) {
    const std::size_t mark = text.find(mirel::kRequestData);
    if (mark == std::string::npos)
        return text;
    const std::size_t data = mark + mirel::kRequestData.size();
    const std::size_t bytes = text.size() - data;
    if (bytes > dataBytes)
        text.replace(data + dataBytes, std::string::npos,
                     "[" + std::to_string(bytes - dataBytes) + " bytes not logged]");
    return text;
}

void endSubscription(unsigned long id) {
    std::shared_ptr<Subscriber> subscriber;
    {
        const mirel::Lock lock(subscribers().mutex);
        const auto found = subscribers().byId.find(id);
        if (found == subscribers().byId.end())
            return;
        subscriber = std::move(found->second);
        subscribers().byId.erase(found);
    }
    subscriber->gate.close();
}

} // namespace

ExceptionPublisher* ExceptionPublisher::instance() {
    static ExceptionPublisher* const publisher = new ExceptionPublisher;
    return publisher;
}

void ExceptionPublisher::publishException(MirelException& report) {
    const mirel::WakeUpsAtOnce wakeUpsAtOnce;
    ++subscribers().published;
    if (subscribers().writeToLog)
        mirel::callGuarded(kComponent, "the log", [&] {
            logAppUni(kComponent, report.file().c_str(), 2, report.line(), "%s",
                      mirel::describe(report).c_str());
        });
    for (const auto& subscriber : currentSubscribers())
        call(*subscriber, report);
}

namespace mirel {

ReportSubscription::ReportSubscription(ReportSubscription&& other) noexcept
    : m_id(std::exchange(other.m_id, 0)) {}

ReportSubscription& ReportSubscription::operator=(ReportSubscription&& other) noexcept {
    // What this one held ends with the parameter's former self.
    ReportSubscription former(std::move(*this));
    m_id = std::exchange(other.m_id, 0);
    return *this;
}

ReportSubscription::~ReportSubscription() {
    if (m_id != 0)
        endSubscription(m_id);
}

ReportSubscription subscribeToReports(ReportSubscriber subscriber) {
    auto entry = std::make_shared<Subscriber>(std::move(subscriber));
    const mirel::Lock lock(subscribers().mutex);
    const unsigned long id = ++subscribers().lastId;
    subscribers().byId.emplace(id, std::move(entry));
    return ReportSubscription(id);
}

void writeReportsToLog(bool on) { subscribers().writeToLog = on; }

unsigned long publishedReports() { return subscribers().published; }

std::string describe(const MirelException& report, std::size_t dataBytes) {
    std::string text;
    for (const MirelException* failure = &report; failure; failure = failure->cause()) {
        if (failure != &report)
            text.append("\n caused by: ");
        text.append(withDataCut(failure->message(), dataBytes));
        text.append(" (").append(failure->file()).append(":");
        text.append(std::to_string(failure->line())).append(")");
    }
    return text;
}

} // namespace mirel
