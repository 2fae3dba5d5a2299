// How the library's costs grow with what there is to do: sources, requests that are held back, idle
// workers. And what a worker and a held-back request cost. The counters are microseconds or bytes,
// as their names say.

#include "bench/Backlog.h"
#include "bench/BatchChannel.h"
#include "bench/Crowd.h"
#include "bench/MirelContestant.h"
#include "bench/SharedPool.h"
#include "bench/Workload.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

using namespace bench;
using Clock = std::chrono::steady_clock;

/// A counter that is the average of what `each` adds up over all iterations, for each of `items`.
benchmark::Counter average(std::chrono::nanoseconds total, int items) {
    const std::chrono::duration<double, std::micro> microseconds = total;
    return {microseconds.count() / items, benchmark::Counter::kAvgIterations};
}

/// All of them read and answered, again and again.
void measureBatches(benchmark::State& state, Batches& batches, int count) {
    batches.run(); // threads are started, memory is there
    std::chrono::nanoseconds total{};
    for (auto _ : state) {
        const auto begin = Clock::now();
        batches.run();
        total += Clock::now() - begin;
    }
    state.counters["request_us"] = average(total, count);
}

void measureSources(benchmark::State& state, int sources) {
    const int count = std::max(20'000, 10 * sources);
    Workload workload(HandlerCost{});
    Batches batches(Workload::requests(count, sources));
    const auto contestant = startMirel(batches.channel(), workload, sources);
    measureBatches(state, batches, count);
}

void measureIdleWorkers(benchmark::State& state, int idle) {
    constexpr int kSources = 8;
    constexpr int kCount = 20'000;
    Crowd crowd(kSources + idle);
    Workload workload(HandlerCost{});
    Batches batches(Workload::requests(kCount, kSources));
    // With room for those that are made when a finished worker is not quite back in the pool.
    SharedPool pool(2 * kSources + idle);
    crowd.gather(pool);
    pool.serve(batches.channel(), workload);
    measureBatches(state, batches, kCount);
}

/// With a short backlog, that the threads have just woken up counts for more than anything else.
void measureBacklog(benchmark::State& state, int length) {
    Backlog backlog(static_cast<std::size_t>(length));
    std::chrono::nanoseconds toHoldBack{};
    std::chrono::nanoseconds toDrain{};
    backlog.run(); // threads are started, memory is there
    for (auto _ : state) {
        const Backlog::Cost cost = backlog.run();
        toHoldBack += cost.toHoldBack;
        toDrain += cost.toDrain;
    }
    state.counters["hold_back_us"] = average(toHoldBack, length);
    state.counters["drain_us"] = average(toDrain, length);
}

void measureHeldBackMemory(benchmark::State& state) {
    constexpr int kLength = 100'000;
    Backlog backlog(kLength);
    for (auto _ : state)
        state.counters["bytes"] = static_cast<double>(backlog.run().bytes) / kLength;
}

struct ProcessMemory {
    double virtualBytes = 0;
    double residentBytes = 0;
};

ProcessMemory processMemory() {
    ProcessMemory memory;
    std::ifstream("/proc/self/statm") >> memory.virtualBytes >> memory.residentBytes;
    const auto page = static_cast<double>(sysconf(_SC_PAGESIZE));
    return {memory.virtualBytes * page, memory.residentBytes * page};
}

/// What the process has for each worker; the kernel has some more. Counted from the first hundred
/// on: they take what the C library keeps of former threads, and bring its arenas into being, of
/// which there is a fixed number.
void measureWorkerMemory(benchmark::State& state) {
    constexpr int kFirst = 100;
    constexpr int kWorkers = 1000;
    for (auto _ : state) {
        Crowd first(kFirst);
        Crowd all(kFirst + kWorkers);
        SharedPool pool(kFirst + kWorkers);
        first.gather(pool);
        const ProcessMemory before = processMemory();
        all.gather(pool);
        const ProcessMemory after = processMemory();
        state.counters["resident_bytes"] = (after.residentBytes - before.residentBytes) / kWorkers;
        state.counters["virtual_bytes"] = (after.virtualBytes - before.virtualBytes) / kWorkers;
    }
}

void measureStartAndStop(benchmark::State& state, int workers) {
    std::chrono::nanoseconds toStart{};
    std::chrono::nanoseconds toStop{};
    for (auto _ : state) {
        Crowd crowd(workers);
        SharedPool pool(workers);
        toStart += crowd.gather(pool);
        pool.stopReading();
        const auto begin = Clock::now();
        pool.pool().shutdown();
        toStop += Clock::now() - begin;
    }
    state.counters["start_us"] = average(toStart, 1);
    state.counters["stop_us"] = average(toStop, 1);
}

template <typename Measure>
auto* add(const std::string& name, Measure measure) {
    return benchmark::RegisterBenchmark(name.c_str(), measure)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

void addEach(const std::string& name, std::initializer_list<int> sizes, auto measure) {
    for (const int size : sizes)
        add(name + std::to_string(size),
            [measure, size](benchmark::State& state) { measure(state, size); });
}

} // namespace

int main(int argc, char** argv) {
    // First, while the heap has no free pages that were in use before.
    add("growth/memory/worker", &measureWorkerMemory)->Iterations(1);
    add("growth/memory/held_back", &measureHeldBackMemory)->Iterations(1);
    addEach("growth/sources/", {1, 4, 16, 64, 256, 1024, 4096}, &measureSources);
    addEach("growth/backlog/", {1, 10, 100, 1000, 10'000, 100'000, 1'000'000}, &measureBacklog);
    addEach("growth/idle_workers/", {0, 10, 100, 1000}, &measureIdleWorkers);
    addEach("growth/start_stop/", {1000}, &measureStartAndStop);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
}
