#include "bench/Benchmarks.h"

#include <algorithm>
#include <utility>

namespace bench {

int runBenchmarks(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

void addPercentiles(benchmark::State& state, std::map<std::string, Durations> samples) {
    for (auto& [name, sorted] : samples) {
        std::sort(sorted.begin(), sorted.end());
        for (const auto& [suffix, perMille] :
             {std::pair{"_p50", 500U}, {"_p99", 990U}, {"_p999", 999U}}) {
            const std::size_t rank = (sorted.size() * perMille + 999) / 1000; // counted from 1
            if (rank > 0)
                state.counters[name + suffix] =
                    std::chrono::duration<double, std::micro>(sorted[rank - 1]).count();
        }
    }
}

} // namespace bench
