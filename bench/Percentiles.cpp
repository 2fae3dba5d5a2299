#include "bench/Percentiles.h"

#include <algorithm>

namespace bench {

namespace {

std::chrono::nanoseconds nearestRank(const std::vector<std::chrono::nanoseconds>& sorted,
                                     std::size_t perMille) {
    const std::size_t rank = (sorted.size() * perMille + 999) / 1000; // counted from 1
    return sorted[rank - 1];
}

} // namespace

void addPercentiles(benchmark::State& state, const std::string& name,
                    std::vector<std::chrono::nanoseconds> samples) {
    if (samples.empty())
        return;
    std::sort(samples.begin(), samples.end());
    const auto add = [&](const char* suffix, std::size_t perMille) {
        const std::chrono::duration<double, std::micro> value = nearestRank(samples, perMille);
        state.counters[name + suffix] = value.count();
    };
    add("_p50", 500);
    add("_p99", 990);
    add("_p999", 999);
}

} // namespace bench
