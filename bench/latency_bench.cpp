// How long a request takes from the channel's read to its handler and to its answer: one request
// at a time (`closed`), and arrivals at a share, in percent, of the rate that the contestant
// reaches itself, from eight sources (`tails`). And what bare threads take that wake each other.
// The counters are in microseconds, but for the rate (a second) and the share of hand-overs that
// found the other thread asleep.

#include "bench/Benchmarks.h"
#include "bench/Contestant.h"
#include "bench/FutexWord.h"
#include "bench/Placement.h"
#include "bench/TimedLoad.h"
#include "bench/Workload.h"

#include <algorithm>
#include <array>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace bench;
using Seconds = std::chrono::duration<double>;

void measureClosed(benchmark::State& state, const Kind& kind, HandlerCost cost,
                   Placement placement) {
    Workload workload(cost);
    TimedLoad load(workload, 1, placement);
    const auto contestant = kind.start(load.channel(), workload, 1);
    placeReader(placement);
    load.runClosed(1000); // threads are started, memory is there
    std::map<std::string, Durations> samples;
    for (auto _ : state) {
        load.runClosed(10'000);
        load.appendTo(samples);
    }
    placeReader(Placement::eFree);
    addPercentiles(state, samples);
}

/// Requests per second when there is always one more to read: the median of three runs.
double saturatedRate(TimedLoad& load, HandlerCost cost) {
    const Durations allAtOnce(cost.microseconds == 0 ? 20'000 : 4'000);
    load.runOpen(allAtOnce); // threads are started, memory is there
    std::array<double, 3> rates{};
    for (double& rate : rates) {
        const auto begin = Clock::now();
        load.runOpen(allAtOnce);
        const Seconds duration = Clock::now() - begin;
        rate = static_cast<double>(allAtOnce.size()) / duration.count();
    }
    std::sort(rates.begin(), rates.end());
    return rates[1];
}

/// As calls from many independent callers arrive: the distances between them are exponential.
/// Always the same ones, but for the rate.
Durations arrivalsAtRandom(double rate, Seconds length) {
    std::mt19937_64 random(1);
    std::exponential_distribution<double> distance(rate);
    Durations arrivals;
    for (Seconds time{0}; time < length; time += Seconds(distance(random)))
        arrivals.push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(time));
    return arrivals;
}

void measureTails(benchmark::State& state, const Kind& kind, HandlerCost cost, int percent) {
    constexpr int kSources = 8;
    Workload workload(cost);
    TimedLoad load(workload, kSources);
    const auto contestant = kind.start(load.channel(), workload, kSources);
    const double rate = saturatedRate(load, cost) * percent / 100;
    // Longer than an iteration has to be, so that usually one is enough.
    const Durations arrivals = arrivalsAtRandom(rate, Seconds(0.6));
    std::map<std::string, Durations> samples;
    for (auto _ : state) {
        load.runOpen(arrivals);
        load.appendTo(samples);
    }
    state.counters["rate"] = rate;
    addPercentiles(state, samples);
}

/// The beginning and `wasAsleep` are written by the one that wakes, the end by the one woken.
struct HandOver {
    Clock::time_point begin;
    Clock::time_point end;
    bool wasAsleep = false;
};

/// What threads reach that do nothing but wake each other: the limit for every way of handing
/// something to another thread. Each sleeps on a word of its own. The one that runs wakes the next,
/// the last the first, and goes to sleep at once, as a thread that reads does after the only
/// request. The first is placed as a reader and the others as handlers.
std::vector<HandOver> handOver(std::size_t threads, Placement placement) {
    std::vector<FutexWord> words(threads);
    std::vector<HandOver> handOvers(threads * 5'000); // number i wakes thread i % threads
    const auto wake = [&](std::size_t i) {
        handOvers[i].begin = Clock::now();
        handOvers[i].wasAsleep = words[i % threads].wake();
    };
    const auto takePart = [&](std::size_t self) {
        for (std::size_t i = self; i < handOvers.size(); i += threads) {
            words[self].sleep();
            handOvers[i].end = Clock::now();
            if (i + 1 < handOvers.size())
                wake(i + 1);
        }
    };
    std::vector<std::jthread> others;
    for (std::size_t self = 1; self < threads; ++self)
        others.emplace_back([&, self] {
            placeHandler(placement);
            takePart(self);
        });
    placeReader(placement);
    wake(0); // finds nobody asleep
    takePart(0);
    others.clear();
    placeReader(Placement::eFree);
    return handOvers;
}

/// Of the hand-overs that found the other thread asleep; one that is still on its way to sleep
/// needs no waking.
void measureFutex(benchmark::State& state, std::size_t threads, Placement placement) {
    Durations ofSleepers;
    double tried = 0;
    for (auto _ : state)
        for (const HandOver& one : handOver(threads, placement)) {
            ++tried;
            if (one.wasAsleep)
                ofSleepers.push_back(one.end - one.begin);
        }
    state.counters["asleep"] = static_cast<double>(ofSleepers.size()) / tried;
    addPercentiles(state, {{"hand_over", ofSleepers}});
}

void addFutex(const std::string& name, std::size_t threads, Placement placement) {
    if (possible(placement))
        addBenchmark("latency/futex/" + name, [threads, placement](benchmark::State& state) {
            measureFutex(state, threads, placement);
        });
}

/// Each contestant in a cell; `measure` takes the state and the kind.
void addCell(const std::string& mode, int number, HandlerCost cost, auto measure) {
    for (const Kind& kind : contestants())
        addBenchmark(mode + "/" + std::to_string(number) + "/" + cost.name() + "/" + kind.name,
                     [measure, &kind](benchmark::State& state) { measure(state, kind); });
}

void addClosed(const std::string& mode, HandlerCost cost, Placement placement) {
    if (possible(placement))
        addCell("latency/" + mode, 1, cost,
                [cost, placement](benchmark::State& state, const Kind& kind) {
                    measureClosed(state, kind, cost, placement);
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
        for (const int percent : {50, 80, 95})
            addCell("tails", percent, cost, [=](benchmark::State& state, const Kind& kind) {
                measureTails(state, kind, cost, percent);
            });
    return runBenchmarks(argc, argv);
}
