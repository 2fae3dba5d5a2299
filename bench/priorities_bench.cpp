// What priorities do to a load, and for a request, with the pool that mirel-host has unless told
// otherwise. Only this library has priorities. Latencies are in microseconds, from the sending to
// the answer.

#include "bench/MirelContestant.h"
#include "bench/Window.h"
#include "channels/queue/QueueChannel.h"

namespace {

using namespace bench;
using Requests = std::vector<CommsChannelDataContainerMessage>;

constexpr std::size_t kWindow = 256; // requests on their way, as mirel-call has it
constexpr int kSources = 16;
constexpr int kPriorities = 3;

/// Request number i of the sources in turn has the priority `priorityOf(i)`.
void measureLoad(benchmark::State& state, int (*priorityOf)(int)) {
    constexpr int kCount = 20'000;
    Workload workload(HandlerCost{});
    Requests requests = Workload::requests(kSources * kPriorities, kSources);
    for (int i = 0; i < kSources * kPriorities; ++i)
        requests[static_cast<std::size_t>(i)].setPriority(MirelThreadPriority(priorityOf(i)));
    const auto queue = std::make_shared<mirel::MessageQueue>(kWindow);
    Window window(*queue, requests, kWindow);
    MirelContestant library(kWorkersKept);
    library.serve(std::make_unique<mirel::QueueChannel>(
                      queue, [&](auto& answer) { window.answered(answer); }),
                  workload);
    window.run(kCount); // threads are started, memory is there
    window.takeLatencies();
    for (auto _ : state)
        window.run(kCount);
    state.SetItemsProcessed(state.iterations() * kCount);
    addPercentiles(state, {{"answer", window.takeLatencies()}});
}

/// One source that sends a request when the former is answered, while others, of priority 0, always
/// have requests waiting.
void measureUrgent(benchmark::State& state, HandlerCost cost, MirelThreadPriority priority) {
    constexpr int kOthers = 32;
    constexpr std::size_t kCount = 500;
    constexpr const char* kUrgent = "urgent";
    Workload workload(cost);
    Requests ones = Workload::requests(1, 1);
    ones[0].sourceChannel() = kUrgent;
    ones[0].setPriority(priority);
    Requests rest = Workload::requests(kOthers, kOthers);
    for (auto& request : rest)
        request.setPriority(ePriorityLow);
    const auto queue = std::make_shared<mirel::MessageQueue>(kWindow + 1);
    Window urgent(*queue, ones, 1);
    Window others(*queue, rest, kWindow);
    const auto onAnswer = [&](const mirel::Answer& answer) {
        (answer.sourceChannel == kUrgent ? urgent : others).answered(answer);
    };
    MirelContestant library(kWorkersKept);
    library.serve(std::make_unique<mirel::QueueChannel>(queue, onAnswer), workload);
    others.start();
    urgent.run(kCount); // threads are started, memory is there
    urgent.takeLatencies();
    for (auto _ : state)
        urgent.run(kCount);
    others.stop();
    addPercentiles(state, {{"answer", urgent.takeLatencies()}});
}

void addLoad(const std::string& name, int (*priorityOf)(int)) {
    addBenchmark("priorities/" + name,
                 [priorityOf](benchmark::State& state) { measureLoad(state, priorityOf); });
}

} // namespace

int main(int argc, char** argv) {
    const auto one = [](int) -> int { return ePriorityNormal; };
    addLoad("of_sources/mirel", [](int i) { return i % kSources % kPriorities; });
    addLoad("of_sources/one_priority", one);
    // Of the sources in turn, of which there are not a multiple of three.
    addLoad("of_requests/mirel", [](int i) { return i % kPriorities; });
    addLoad("of_requests/one_priority", one);
    for (const HandlerCost cost : {HandlerCost{0}, HandlerCost{20}})
        for (const auto& [who, priority] :
             {std::pair{"/mirel", ePriorityHigh}, {"/priority_0", ePriorityLow}})
            addBenchmark("urgency/" + cost.name() + who,
                         [cost, priority = priority](benchmark::State& state) {
                             measureUrgent(state, cost, priority);
                         });
    return runBenchmarks(argc, argv);
}
