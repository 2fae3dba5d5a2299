// A caller that keeps a number of requests on their way, and a pool of 16 kept workers: with more
// busy sources than these (`churn`), and with several priorities, which only this library has.
// Latencies are in microseconds, from the sending to the answer.

#include "bench/Contestant.h"
#include "bench/MirelContestant.h"
#include "bench/Window.h"
#include "channels/queue/QueueChannel.h"

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

namespace {

using namespace bench;
using Requests = std::vector<CommsChannelDataContainerMessage>;

constexpr std::size_t kWindow = 256; // requests on their way, as mirel-call has it
constexpr int kSources = 16;
constexpr int kPriorities = 3;

/// These requests in turn.
void measureLoad(benchmark::State& state, const Kind& kind, int sources, HandlerCost cost,
                 const Requests& requests) {
    const int count = cost.microseconds == 0 ? 20'000 : 10'000;
    Workload workload(cost);
    const auto queue = std::make_shared<mirel::MessageQueue>(kWindow);
    Window window(*queue, requests, kWindow);
    const auto contestant = kind.start(std::make_unique<mirel::QueueChannel>(
                                           queue, [&](auto& answer) { window.answered(answer); }),
                                       workload, sources);
    const auto run = [&] { window.run(static_cast<std::size_t>(count)); };
    run(); // threads are started, memory is there
    window.takeLatencies();
    for (auto _ : state)
        run();
    state.SetItemsProcessed(state.iterations() * count);
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

/// A pool that keeps all the workers has the same work without making any. The others have as many
/// threads as ours keeps, so that handlers that block would hold up everybody; with as many as
/// sources they are in `throughput`.
void addChurn(int sources, HandlerCost cost) {
    for (const Kind& kind : std::initializer_list<Kind>{
             {"mirel", Kind::eSixteen},
             {"enough_kept", Kind::eOnePerSource},
             {"asio_16", Kind::eSixteen, &makeAsioPeer},
             {"tbb_16", Kind::eSixteen, &makeTbbPeer},
             {"caf_16", Kind::eSixteen, &makeCafPeer},
             {"threads_16", Kind::eSixteen, &makeThreadPerSourcePeer},
         })
        addBenchmark("churn/" + std::to_string(sources) + "/" + cost.name() + "/" + kind.name,
                     [=](benchmark::State& state) {
                         measureLoad(state, kind, sources, cost,
                                     Workload::requests(sources, sources));
                     });
}

/// Request number i of the sources in turn has the priority `priorityOf(i)`.
void addPriorities(const std::string& name, int (*priorityOf)(int)) {
    Requests requests = Workload::requests(kSources * kPriorities, kSources);
    for (int i = 0; i < kSources * kPriorities; ++i)
        requests[static_cast<std::size_t>(i)].setPriority(MirelThreadPriority(priorityOf(i)));
    addBenchmark("priorities/" + name, [requests](benchmark::State& state) {
        measureLoad(state, {"mirel", Kind::eSixteen}, kSources, HandlerCost{}, requests);
    });
}

} // namespace

int main(int argc, char** argv) {
    for (const int sources : {64, 512})
        for (const HandlerCost cost : {HandlerCost{0}, HandlerCost{20}})
            addChurn(sources, cost);
    const auto one = [](int) -> int { return ePriorityNormal; };
    addPriorities("of_sources/mirel", [](int i) { return i % kSources % kPriorities; });
    addPriorities("of_sources/one_priority", one);
    // Of the sources in turn, of which there are not a multiple of three.
    addPriorities("of_requests/mirel", [](int i) { return i % kPriorities; });
    addPriorities("of_requests/one_priority", one);
    for (const HandlerCost cost : {HandlerCost{0}, HandlerCost{20}})
        for (const auto& [who, priority] :
             {std::pair{"/mirel", ePriorityHigh}, {"/priority_0", ePriorityLow}})
            addBenchmark("urgency/" + cost.name() + who,
                         [cost, priority = priority](benchmark::State& state) {
                             measureUrgent(state, cost, priority);
                         });
    return runBenchmarks(argc, argv);
}
