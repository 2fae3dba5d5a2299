#include "host/Host.h"

#include "channels/ChannelCounters.h"
#include "channels/FlowLimit.h"
#include "channels/LimitedPool.h"
#include "channels/ServiceChannel.h"
#include "framework/Threader.h"
#include "host/HostOptions.h"
#include "host/HostedExecutor.h"
#include "host/LoopRestarts.h"
#include "host/StopSignals.h"
#include "host/Summary.h"
#include "host/ThreadNumbers.h"
#include "runtime/reports/LogControl.h"
#include "runtime/reports/ReportLog.h"
#include "runtime/reports/Reports.h"
#include "runtime/values/ServiceContext.h"

#include <chrono>
#include <iostream>
#include <memory>
#include <sys/resource.h>

namespace mirel {

namespace {

/// Each caller takes a descriptor. The soft limit is low for the sake of programs that use select,
/// which this one does not.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max)
        return;
    limit.rlim_cur = limit.rlim_max;
    (void)setrlimit(RLIMIT_NOFILE, &limit); // otherwise there is room for fewer
}

ThreadNumbers setUpProcess(const HostOptions& options) {
    raiseDescriptorLimit();
    if (!options.logLevels.empty())
        setLogLevels(options.logLevels);
    const ThreadNumbers numbers(options);
    ThreadOptions threads = options.threads;
    threads.keptThreads = numbers.keptThreads;
    setThreadOptions(threads);
    ServiceContext::loadCreator(options.serviceLibrary, options.creator);
    return numbers;
}

std::unique_ptr<ServiceChannel> open(const HostOptions& options, unsigned long workers,
                                     const StopSignals& signals) {
    ChannelSettings settings = options.channel;
    settings.maxUnfinished = options.maxUnfinished;
    settings.maxWorkers = options.singleThreaded ? 0 : workers;
    settings.giveUp = [&signals] { return signals.pending(); };
    return options.transports.openChannel(settings);
}

void announce(const HostOptions& options, const std::string& url) {
    std::cout << "serving " << options.interface << " of " << options.serviceLibrary << " on "
              << url << (options.singleThreaded ? ", single-threaded" : ", multi-threaded")
              << std::endl;
}

/// True when a signal ended the wait, false when the executor's loop ended.
bool waitForEnd(std::unique_ptr<StopSignals> signals, const HostedExecutor& executor) {
    // The signals are let through again afterwards, so that a second one ends a host whose service
    // does not come to an end.
    return signals->waitForSignalOr(executor.ended().descriptor());
}

} // namespace

int serve(const HostOptions& options) {
    auto signals = std::make_unique<StopSignals>();
    ReportLog reportLog(options.loggedData);
    writeReportsToLog(false);
    const ReportSubscription reports =
        subscribeToReports([&reportLog](const MirelException& report) { reportLog.write(report); });
    const ThreadNumbers threads = setUpProcess(options);
    std::unique_ptr<ServiceChannel> opened = open(options, threads.workers, *signals);
    ServiceChannel& channel = *opened;
    const auto counters = channel.counters();
    const auto limit = std::make_shared<FlowLimit>(options.maxUnfinished, threads.workers);
    const auto begin = std::chrono::steady_clock::now();
    bool failed = false;
    unsigned long restarts = 0;
    ServiceContext context; // destroys the service, at the very end: that may end the process
    {
        LimitedPool pool(threads.maxPool, nullptr, limit);
        channel.limitBy(limit);
        channel.explainBy([&](const std::string& interface, const std::string& protocol) {
            return context.whyUnserved(options.interface, interface, protocol);
        });
        LoopRestarts loopRestarts(*counters, context);
        HostedExecutor executor([&] { return loopRestarts.startAgain(); }, options.serviceLibrary,
                                options.creator, options.interface, opened.release(), &context,
                                &pool, nullptr, !options.singleThreaded);
        Threader threader;
        unsigned long threadId = 0;
        executor.startThread(threader, threadId);
        announce(options, channel.url());

        const bool stoppedBySignal = waitForEnd(std::move(signals), executor);
        executor.shutdown(); // no more messages
        channel.leaveRest();
        pool.shutdown(); // what runs comes to its end; the executor must still be there
        // Asked now, because a failure may have ended the loop while it was being stopped.
        failed = executor.hasStarted() || !stoppedBySignal;
        if (failed)
            std::cerr << "mirel-host: "
                      << (executor.hasStarted() ? "a failure ended the service's loop"
                                                : "the channel ended")
                      << "; the log tells more" << std::endl;
        restarts = loopRestarts.count();
    } // the executor fails what it held back, and the channel sends the last answers
    writeSummary(std::cout, options.interface, *counters, limit->mostWorkers(), restarts,
                 std::chrono::steady_clock::now() - begin);
    std::cout.flush();
    return failed ? 1 : 0;
}

} // namespace mirel
