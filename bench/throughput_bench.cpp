// Requests per second from the channel's read to the answer, saturated: for each number of sources
// and each handler, all contestants one after the other. One run of this program is one round.

#include "bench/BatchChannel.h"
#include "bench/Contestant.h"
#include "bench/MirelContestant.h"
#include "bench/Workload.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>

namespace {

using namespace bench;

/// Requests for one measured iteration: enough that its beginning and its end do not count, and not
/// more than a contestant can do in about a second.
int batchSize(HandlerCost cost, int sources) {
    if (cost.blocks)
        return std::max(100, sources * 20);
    return cost.microseconds < 10 ? 20'000 : 10'000;
}

void measure(benchmark::State& state, int sources, HandlerCost cost, auto start) {
    Workload workload(cost);
    const int count = batchSize(cost, sources);
    Batches batches(Workload::requests(count, sources));
    const auto contestant = start(batches.channel(), workload);
    batches.run(); // threads are started, memory is there
    for (auto _ : state)
        batches.run();
    state.SetItemsProcessed(state.iterations() * count);
}

template <typename Start>
void add(const std::string& name, HandlerCost cost, int sources, Start start) {
    benchmark::RegisterBenchmark(
        name.c_str(), [=](benchmark::State& state) { measure(state, sources, cost, start); })
        ->UseRealTime()
        ->MeasureProcessCPUTime()
        ->Unit(benchmark::kMillisecond);
}

} // namespace

int main(int argc, char** argv) {
    for (const HandlerCost cost :
         {HandlerCost{0}, HandlerCost{2}, HandlerCost{20}, HandlerCost{1000, true}})
        for (const int sources : {1, 8, 64, 512}) {
            const std::string cell =
                "throughput/" + std::to_string(sources) + "/" + cost.name() + "/";
            for (const Kind& kind : contestants())
                add(cell + kind.name, cost, sources,
                    [&kind, sources](auto channel, Workload& workload) {
                        return kind.start(std::move(channel), workload, sources);
                    });
        }
    for (const HandlerCost cost : {HandlerCost{0}, HandlerCost{2}})
        add("inline/1/" + cost.name() + "/mirel", cost, 1, &startMirelInline);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
}
