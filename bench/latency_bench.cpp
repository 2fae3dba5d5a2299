// How long a request takes from the channel's read to its handler and to its answer: one request at
// a time (`closed`), and with arrivals at half the rate that the contestant reaches itself (`half`).
// And what bare threads take that wake each other. One run of this program is one round. The
// counters are in microseconds, but for the rate (a second) and the share of hand-overs that found
// the other thread asleep.

#include "bench/Contestant.h"
#include "bench/FutexHandOver.h"
#include "bench/Percentiles.h"
#include "bench/TimedRequests.h"
#include "bench/Workload.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <random>
#include <string>

namespace {

using namespace bench;
using Durations = TimedRequests::Durations;
using Seconds = std::chrono::duration<double>;

void append(Durations& all, const Durations& more) {
    all.insert(all.end(), more.begin(), more.end());
}

void measureClosed(benchmark::State& state, const Kind& kind, HandlerCost cost,
                   Placement placement) {
    Workload workload(cost);
    TimedRequests requests(workload, 1, placement);
    const auto contestant = kind.start(requests.channel(), workload, 1);
    const PlacedCaller placed(placement);
    requests.runClosed(1000); // threads are started, memory is there
    Durations toHandler;
    Durations toAnswer;
    for (auto _ : state) {
        requests.runClosed(10'000);
        append(toHandler, requests.readToHandler());
        append(toAnswer, requests.readToAnswer());
    }
    addPercentiles(state, "read_handler", toHandler);
    addPercentiles(state, "read_answer", toAnswer);
}

/// Requests per second when there is always one more to read: the median of three runs.
double saturatedRate(TimedRequests& requests, HandlerCost cost) {
    const Durations allAtOnce(cost.microseconds == 0 ? 20'000 : 4'000);
    requests.runOpen(allAtOnce); // threads are started, memory is there
    std::array<double, 3> rates{};
    for (double& rate : rates) {
        const auto begin = TimedRequests::Clock::now();
        requests.runOpen(allAtOnce);
        const Seconds duration = TimedRequests::Clock::now() - begin;
        rate = static_cast<double>(allAtOnce.size()) / duration.count();
    }
    std::sort(rates.begin(), rates.end());
    return rates[1];
}

/// As calls from many independent callers arrive: the distances between them are exponential. Always
/// the same ones, but for the rate.
Durations arrivalsAtRandom(double rate, Seconds length) {
    std::mt19937_64 random(1);
    std::exponential_distribution<double> distance(rate);
    Durations arrivals;
    for (Seconds time{0}; time < length; time += Seconds(distance(random)))
        arrivals.push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(time));
    return arrivals;
}

void measureHalf(benchmark::State& state, const Kind& kind, HandlerCost cost, int sources) {
    Workload workload(cost);
    TimedRequests requests(workload, sources);
    const auto contestant = kind.start(requests.channel(), workload, sources);
    const double rate = saturatedRate(requests, cost) / 2;
    // Longer than an iteration has to be, so that usually one is enough.
    const Durations arrivals = arrivalsAtRandom(rate, Seconds(0.6));
    Durations toHandler;
    Durations toAnswer;
    Durations fromArrival;
    for (auto _ : state) {
        requests.runOpen(arrivals);
        append(toHandler, requests.readToHandler());
        append(toAnswer, requests.readToAnswer());
        append(fromArrival, requests.arrivalToAnswer());
    }
    state.counters["rate"] = rate;
    addPercentiles(state, "read_handler", toHandler);
    addPercentiles(state, "read_answer", toAnswer);
    addPercentiles(state, "arrival_answer", fromArrival);
}

void measureFutex(benchmark::State& state, std::size_t threads, Placement placement) {
    Durations all;
    double tried = 0;
    for (auto _ : state) {
        const FutexHandOvers handOvers = handOver(threads, 5'000, placement);
        append(all, handOvers.durations);
        tried += static_cast<double>(handOvers.tried);
    }
    addPercentiles(state, "hand_over", all);
    state.counters["asleep"] = static_cast<double>(all.size()) / tried;
}

template <typename Measure>
void add(const std::string& name, Measure measure) {
    benchmark::RegisterBenchmark(name.c_str(), measure)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

void addFutex(const std::string& name, std::size_t threads, Placement placement) {
    if (possible(placement))
        add("latency/futex/" + name, [threads, placement](benchmark::State& state) {
            measureFutex(state, threads, placement);
        });
}

void addClosed(const std::string& mode, HandlerCost cost, Placement placement) {
    if (!possible(placement))
        return;
    for (const Kind& kind : contestants())
        add("latency/" + mode + "/1/" + cost.name() + "/" + kind.name,
            [&kind, cost, placement](benchmark::State& state) {
                measureClosed(state, kind, cost, placement);
            });
}

void addHalf(int sources, HandlerCost cost) {
    for (const Kind& kind : contestants())
        add("latency/half/" + std::to_string(sources) + "/" + cost.name() + "/" + kind.name,
            [&kind, cost, sources](benchmark::State& state) {
                measureHalf(state, kind, cost, sources);
            });
}

} // namespace

int main(int argc, char** argv) {
    addFutex("hand_over", 2, Placement::eFree);
    // As many as take part in the closed loop, whom the system may place in another way than two.
    addFutex("hand_over_of_three", 3, Placement::eFree);
    addFutex("hand_over_one_core", 2, Placement::eOneCore);
    addFutex("hand_over_two_cores", 2, Placement::eTwoCores);
    addClosed("closed", HandlerCost{0}, Placement::eFree);
    addClosed("closed_one_core", HandlerCost{0}, Placement::eOneCore);
    addClosed("closed_two_cores", HandlerCost{0}, Placement::eTwoCores);
    addClosed("closed", HandlerCost{20}, Placement::eFree);
    for (const HandlerCost cost : {HandlerCost{0}, HandlerCost{20}})
        for (const int sources : {1, 8})
            addHalf(sources, cost);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
}
