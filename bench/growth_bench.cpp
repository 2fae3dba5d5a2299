// How costs grow with what there is to do: sources, requests that are held back, idle workers. And
// what a worker and a held-back request cost. Counters are in microseconds or bytes.

#include "bench/Benchmarks.h"
#include "bench/Load.h"
#include "bench/MirelContestant.h"
#include "bench/Workload.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <fstream>
#include <malloc.h>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>

namespace {

using namespace bench;

std::size_t heapBytesInUse() {
    return mallinfo2().uordblks + mallinfo2().hblkhd; // the latter are the large blocks
}

/// Requests of one source that are all held back behind one whose handler blocks, and then run.
class Backlog : public Load {
public:
    explicit Backlog(std::size_t length) : Load(Workload::requests(1, 1)), m_length(length) {
        m_workload.setHandler<Executable>([this](Executable&, std::string_view) {
            handle();
            return "";
        });
        m_library.serve(channel(), m_workload);
    }

    /// Once through: all held back, then all run.
    void run() {
        m_blocked = false;
        m_open = false;
        m_handled = 0;
        Load::run(1 + m_length);
    }

    // Of the last run.
    auto toHoldBack() const { return m_allHeldBackAt - m_firstDispatchedAt; } ///< with the reading
    auto toDrain() const { return m_lastBeganAt - m_openedAt; } ///< until the last handler begins
    auto bytes() const { return m_bytesAfter - m_bytesBefore; } ///< of heap, for what is held back

private:
    void beforeRead(std::size_t number) override {
        const std::size_t readInRun = number % (1 + m_length);
        if (readInRun == 1) {
            m_blocked.wait(false);
            m_bytesBefore = heapBytesInUse();
            m_firstDispatchedAt = Clock::now();
        } else if (readInRun == 0 && number > 0) {
            m_allHeldBackAt = Clock::now();
            m_bytesAfter = heapBytesInUse();
            m_open = true;
            m_open.notify_all();
        }
    }

    void handle() {
        if (m_handled == 0) {
            m_blocked = true;
            m_blocked.notify_all();
            m_open.wait(false);
            m_openedAt = Clock::now();
        } else if (m_handled == m_length) {
            m_lastBeganAt = Clock::now();
        }
        ++m_handled;
    }

    const std::size_t m_length;
    Workload m_workload;

    // Of one run. What is no atomic has one writer at a time, whom an atomic hands it on.
    std::atomic<bool> m_blocked{false}; ///< the first handler is there
    std::atomic<bool> m_open{false};    ///< and may end
    std::size_t m_handled = 0;          ///< by handlers, of which one runs at a time
    Clock::time_point m_firstDispatchedAt, m_allHeldBackAt, m_openedAt, m_lastBeganAt;
    std::size_t m_bytesBefore = 0, m_bytesAfter = 0;

    MirelContestant m_library{1}; ///< last, so that it ends first
};

/// Requests that each keep a worker until all of them have one. Outlives whom it is sent to.
class Crowd {
public:
    explicit Crowd(int size) : m_size(size), m_load(Workload::requests(size, size)) {
        m_workload.setHandler<Executable>([this](Executable&, std::string_view) {
            waitForAll();
            return "";
        });
    }

    /// Has all requests run at once; returns after as many workers are idle in the pool, and says
    /// how long it took until each request had its worker. Once only.
    std::chrono::nanoseconds gather(MirelContestant& library) {
        library.serve(m_load.channel(), m_workload);
        const Clock::time_point begin = Clock::now();
        m_load.run();
        // A worker answers first and goes back to the pool then; there is nothing to wait on.
        while (library.pool().availableThreads(ePriorityNormal) < m_size)
            std::this_thread::yield();
        const std::lock_guard lock(m_mutex);
        return m_completedAt - begin;
    }

private:
    void waitForAll() {
        std::unique_lock lock(m_mutex);
        if (++m_inside == m_size) {
            m_completedAt = Clock::now();
            m_complete.notify_all();
        }
        m_complete.wait(lock, [this] { return m_inside == m_size; });
    }

    const int m_size;
    Workload m_workload;
    Load m_load;

    // Guarded by m_mutex.
    std::mutex m_mutex;
    std::condition_variable m_complete;
    int m_inside = 0;
    Clock::time_point m_completedAt;
};

/// A counter that is the average of what `each` adds up over all iterations, for each of `items`.
benchmark::Counter average(std::chrono::nanoseconds total, int items) {
    const std::chrono::duration<double, std::micro> microseconds = total;
    return {microseconds.count() / items, benchmark::Counter::kAvgIterations};
}

/// All of them read and answered, again and again.
void measureLoad(benchmark::State& state, Load& load, int count) {
    load.run(); // threads are started, memory is there
    std::chrono::nanoseconds total{};
    for (auto _ : state) {
        const auto begin = Clock::now();
        load.run();
        total += Clock::now() - begin;
    }
    state.counters["request_us"] = average(total, count);
}

void measureSources(benchmark::State& state, int sources) {
    const int count = std::max(20'000, 10 * sources);
    Workload workload(HandlerCost{});
    Load load(Workload::requests(count, sources));
    MirelContestant library(sources);
    library.serve(load.channel(), workload);
    measureLoad(state, load, count);
}

void measureIdleWorkers(benchmark::State& state, int idle) {
    constexpr int kSources = 8;
    constexpr int kCount = 20'000;
    Crowd crowd(kSources + idle);
    Workload workload(HandlerCost{});
    Load load(Workload::requests(kCount, kSources));
    // With room for those that are made when a finished worker is not quite back in the pool.
    MirelContestant library(2 * kSources + idle);
    crowd.gather(library);
    library.serve(load.channel(), workload);
    measureLoad(state, load, kCount);
}

/// With a short backlog, that the threads have just woken up counts for more than anything else.
void measureBacklog(benchmark::State& state, int length) {
    Backlog backlog(static_cast<std::size_t>(length));
    std::chrono::nanoseconds toHoldBack{};
    std::chrono::nanoseconds toDrain{};
    backlog.run(); // threads are started, memory is there
    for (auto _ : state) {
        backlog.run();
        toHoldBack += backlog.toHoldBack();
        toDrain += backlog.toDrain();
    }
    state.counters["hold_back_us"] = average(toHoldBack, length);
    state.counters["drain_us"] = average(toDrain, length);
}

void measureHeldBackMemory(benchmark::State& state) {
    constexpr int kLength = 100'000;
    Backlog backlog(kLength);
    for (auto _ : state)
        backlog.run();
    state.counters["bytes"] = static_cast<double>(backlog.bytes()) / kLength;
}

/// Virtual and resident, in bytes.
std::array<double, 2> processMemory() {
    std::array<double, 2> pages{};
    std::ifstream("/proc/self/statm") >> pages[0] >> pages[1];
    const auto size = static_cast<double>(sysconf(_SC_PAGESIZE));
    return {pages[0] * size, pages[1] * size};
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
        MirelContestant library(kFirst + kWorkers);
        first.gather(library);
        const auto before = processMemory();
        all.gather(library);
        const auto after = processMemory();
        state.counters["virtual_bytes"] = (after[0] - before[0]) / kWorkers;
        state.counters["resident_bytes"] = (after[1] - before[1]) / kWorkers;
    }
}

void measureStartAndStop(benchmark::State& state, int workers) {
    std::chrono::nanoseconds toStart{};
    std::chrono::nanoseconds toStop{};
    for (auto _ : state) {
        Crowd crowd(workers);
        MirelContestant library(workers);
        toStart += crowd.gather(library);
        library.stopReading();
        const auto begin = Clock::now();
        library.pool().shutdown();
        toStop += Clock::now() - begin;
    }
    state.counters["start_us"] = average(toStart, 1);
    state.counters["stop_us"] = average(toStop, 1);
}

void addEach(const std::string& cell, std::initializer_list<int> sizes, auto measure) {
    for (const int size : sizes)
        addBenchmark(cell + std::to_string(size),
                     [measure, size](benchmark::State& state) { measure(state, size); });
}

} // namespace

int main(int argc, char** argv) {
    // First, while the heap has no free pages that were in use before.
    addBenchmark("growth/memory/worker", &measureWorkerMemory)->Iterations(1);
    addBenchmark("growth/memory/held_back", &measureHeldBackMemory)->Iterations(1);
    addEach("growth/sources/", {1, 4, 16, 64, 256, 1024, 4096}, &measureSources);
    addEach("growth/backlog/", {1, 10, 100, 1000, 10'000, 100'000, 1'000'000}, &measureBacklog);
    addEach("growth/idle_workers/", {0, 10, 100, 1000}, &measureIdleWorkers);
    addEach("growth/start_stop/", {1000}, &measureStartAndStop);
    return runBenchmarks(argc, argv);
}
