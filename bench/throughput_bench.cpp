// Requests per second from the channel's read to the answer, saturated: for each number of sources
// and each handler, all contestants one after the other. And when handlers fail (`failing`).

#include "bench/Benchmarks.h"
#include "bench/Contestant.h"
#include "bench/Load.h"
#include "bench/Workload.h"
#include "runtime/reports/LogControl.h"

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

void measure(benchmark::State& state, const Kind& kind, int sources, HandlerCost cost) {
    Workload workload(cost);
    if (cost.fails)
        mirel::setLogSink([](const mirel::LogLine&) {}); // reports are made, and go nowhere
    const int count = batchSize(cost, sources);
    Load load(Workload::requests(count, sources));
    const auto contestant = kind.start(load.channel(), workload, sources);
    load.run(); // threads are started, memory is there
    for (auto _ : state)
        load.run();
    state.SetItemsProcessed(state.iterations() * count);
}

void add(const std::string& section, const Kind& kind, int sources, HandlerCost cost) {
    addBenchmark(section + "/" + std::to_string(sources) + "/" + cost.name() + "/" + kind.name,
                 [=](benchmark::State& state) { measure(state, kind, sources, cost); })
        ->MeasureProcessCPUTime();
}

} // namespace

int main(int argc, char** argv) {
    for (const HandlerCost cost :
         {HandlerCost{0}, HandlerCost{2}, HandlerCost{20}, HandlerCost{1000, true}})
        for (const int sources : {1, 8, 64, 512})
            for (const Kind& kind : contestants())
                add("throughput", kind, sources, cost);
    for (const HandlerCost cost : {HandlerCost{0}, HandlerCost{2}})
        add("inline", {"mirel", Kind::eReaderOnly}, 1, cost);
    for (const int sources : {8, 64}) {
        for (const Kind& kind : contestants())
            add("failing", kind, sources, {.fails = true});
        add("failing", {"without_failures", Kind::eOnePerSource}, sources, {});
    }
    return runBenchmarks(argc, argv);
}
