#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;
using Durations = std::vector<std::chrono::nanoseconds>;

/// Adds a benchmark that is measured by what passes on the clock.
template <typename Measure>
auto* addBenchmark(const std::string& name, Measure measure) {
    return benchmark::RegisterBenchmark(name.c_str(), measure)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

/// Runs those that the arguments ask for. Returns the exit code.
int runBenchmarks(int argc, char** argv);

/// Reports the median, the 99th and the 99.9th percentile of the samples of each name as counters
/// NAME_p50, NAME_p99 and NAME_p999, in microseconds. By nearest rank: the smallest of the samples
/// that at least so many of them do not exceed; nothing is left out and nothing interpolated.
/// Without samples it reports nothing.
void addPercentiles(benchmark::State& state, std::map<std::string, Durations> samples);

} // namespace bench
