#include "RoundPlan.h"
#include "tests/unit/ExecutorFixture.h"

#include "channels/queue/MessageQueue.h"
#include "channels/queue/QueueChannel.h"

#include <cstdlib>
#include <iostream>
#include <random>
#include <semaphore>
#include <sstream>

namespace {

constexpr int kInFlight = 4096; ///< bounds what the executor holds back
constexpr int kFailing = 50;    ///< each so many of a source fail

/// One source, and the model of how the service must see its requests.
struct Source {
    int sent = 0;
    int handled = 0; ///< plain: ThreadSanitizer checks that one request shows it to the next
    std::atomic<bool> running{false};
};

TEST(Storm, MillionRequestsInOrder) {
    const char* const wanted = std::getenv("MIREL_STORM_REQUESTS");
    const int requests = wanted ? std::stoi(wanted) : STORM_REQUESTS;
    const auto start = std::chrono::steady_clock::now();
    mirel::writeReportsToLog(false);
    const unsigned long reportsBefore = mirel::publishedReports();

    std::vector<Source> sources(kSources);
    std::vector<std::atomic<unsigned char>> answers(static_cast<std::size_t>(requests));
    std::atomic<unsigned> violations{0};
    std::atomic<unsigned> failures{0};
    std::counting_semaphore<kInFlight> inFlight(kInFlight);

    TestInvoker invoker([&](Executable*, std::string data, InvokerResponse* response) {
        std::size_t source = 0;
        int place = 0;
        std::istringstream(data) >> source >> place;
        Source& model = sources[source];
        if (model.running.exchange(true, std::memory_order_relaxed) || ++model.handled != place)
            violations.fetch_add(1, std::memory_order_relaxed);
        model.running.store(false, std::memory_order_relaxed);
        if (place % kFailing == 0)
            throw 5;
        response->answer("");
        delete response;
    });
    const auto onAnswer = [&](const mirel::Answer& answer) {
        ++answers[static_cast<std::size_t>(answer.requestId)];
        failures.fetch_add(answer.succeeded ? 0 : 1, std::memory_order_relaxed);
        inFlight.release();
    };
    TestContext context;
    context.invokers["Ifc/text"] = &invoker;
    TestService service;
    ServiceThreadPool pool(kSources, nullptr);
    const auto queue = std::make_shared<mirel::MessageQueue>(1000);
    ServiceExecutor executor(&service, new mirel::QueueChannel(queue, onAnswer), "Ifc", &context,
                             &pool, nullptr, true);
    Threader threader;
    unsigned long threadId = 0;
    executor.startThread(threader, threadId);

    std::mt19937 random(7);
    unsigned dueFailures = 0;
    int sent = 0;
    for (; sent < requests && inFlight.try_acquire_for(kPatience); ++sent) {
        const std::size_t source = random() % kSources;
        const int place = ++sources[source].sent;
        dueFailures += place % kFailing == 0 ? 1 : 0;
        const std::string name = std::to_string(source);
        queue->send(requestFrom(name, name + " " + std::to_string(place),
                                static_cast<int>(random() % 3), sent));
    }
    EXPECT_EQ(requests, sent) << "no more answers came";
    for (int answered = 0; answered < kInFlight && !HasFailure(); ++answered)
        EXPECT_TRUE(inFlight.try_acquire_for(kPatience)) << "not all were answered";
    executor.shutdown();
    pool.shutdown();
    mirel::writeReportsToLog(true);

    EXPECT_EQ(0u, violations);
    for (const Source& source : sources)
        EXPECT_EQ(source.sent, source.handled);
    for (const auto& count : answers)
        ASSERT_EQ(1, count);
    EXPECT_EQ(dueFailures, failures);
    EXPECT_EQ(dueFailures, mirel::publishedReports() - reportsBefore);
    std::cout << "storm: " << requests << " requests of " << kSources << " sources in "
              << std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count()
              << " s" << std::endl;
}

} // namespace
