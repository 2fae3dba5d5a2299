#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>
#include <vector>

namespace bench {

/// Reports the median, the 99th and the 99.9th percentile of all samples as the counters NAME_p50,
/// NAME_p99 and NAME_p999, in microseconds. By nearest rank: the smallest of the samples that at
/// least so many of them do not exceed; nothing is left out and nothing interpolated. Without
/// samples it reports nothing.
void addPercentiles(benchmark::State& state, const std::string& name,
                    std::vector<std::chrono::nanoseconds> samples);

} // namespace bench
