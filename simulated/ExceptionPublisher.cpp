#include "framework/ExceptionPublisher.h"

#include "simulated/Scheduler.h"

using mirel::simulated::Scheduler;

ExceptionPublisher* ExceptionPublisher::instance() {
    static ExceptionPublisher publisher;
    return &publisher;
}

void ExceptionPublisher::publishException(MirelException& report) {
    Scheduler* const scheduler = Scheduler::current();
    if (!scheduler)
        return;
    scheduler->perform({"ExceptionPublisher::publishException", this});
    if (scheduler->state.onReport)
        scheduler->state.onReport(report);
}
