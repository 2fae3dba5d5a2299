// Takes requests along one path through the library, so that what each costs can be counted:
// paths.py runs this under callgrind, and it prints the allocations of the thread that reads and of
// the workers. What the main thread does counts for nothing. On each path one step follows the
// other, whatever the scheduler does, so that the counts repeat.

#include "ServiceThreadIfc.h"
#include "bench/Contestant.h"
#include "bench/Load.h"
#include "bench/MirelContestant.h"
#include "bench/Workload.h"

#include <atomic>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <new>
#include <semaphore>
#include <string>
#include <utility>

namespace {

struct Allocations {
    std::atomic<long> byMain{0}, byReader{0}, byWorkers{0};
} allocations;
thread_local std::atomic<long>* allocationsOfThread = &allocations.byWorkers;

} // namespace

// Not inlined: GCC takes a pair of which it sees one half only for a mismatch.

[[gnu::noinline]] void* operator new(std::size_t size) {
    allocationsOfThread->fetch_add(1, std::memory_order_relaxed);
    if (void* const memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace bench {

namespace {

/// Lets one thread wait for another. Belongs to no path: what happens in these functions depends on
/// the scheduler, and paths.py has it left out by their names.
class Turn {
public:
    [[gnu::noinline]] void wait() { m_turns.acquire(); }
    [[gnu::noinline]] void give() { m_turns.release(); }

private:
    std::counting_semaphore<> m_turns{0};
};

/// Does something before each read.
class WatchedLoad : public Load {
public:
    explicit WatchedLoad(
        int count, std::function<void()> action = [] {})
        : Load(Workload::requests(count, 1)),
          m_action(std::move(action)) {}

private:
    void beforeRead(std::size_t) override {
        allocationsOfThread = &allocations.byReader;
        m_action();
    }

    const std::function<void()> m_action;
};

/// Tells when a worker has come back.
class WatchedPool : public ServiceThreadPool {
public:
    WatchedPool(int maxPoolSize, Turn& returned)
        : ServiceThreadPool(maxPoolSize, nullptr),
          m_returned(returned) {}

    bool returnThread(ServiceThreadIfc* thread) override {
        ServiceThreadPool::returnThread(thread);
        m_returned.give();
        return true;
    }

private:
    Turn& m_returned;
};

/// What the framework's own objects cost: the thread that reads calls the invoker.
class DirectPeer : public Peer {
    void post(const std::string&, Request request) override { request.run(); }
};

void runDirect(int count) {
    Workload workload(HandlerCost{});
    WatchedLoad load(count);
    const Contestant direct = startPeer(load.channel(), workload, std::make_unique<DirectPeer>());
    load.run();
}

void runInline(int count) {
    Workload workload(HandlerCost{});
    WatchedLoad load(count);
    MirelContestant library(0);
    library.serve(load.channel(), workload, false);
    load.run();
}

/// Each request finds its channel free and goes to an idle worker. The next one is read when that
/// worker is back in the pool. It may not be asleep yet, but it is the last in line: by its next
/// turn it is.
void runWorkers(int count) {
    constexpr int kWorkers = 16;
    Workload workload(HandlerCost{});
    Turn returned;
    WatchedLoad load(count, [&returned, out = kWorkers]() mutable {
        for (; out > 0; --out)
            returned.wait();
        out = 1; // before the next read
    });
    MirelContestant library(std::make_unique<WatchedPool>(kWorkers, returned));
    library.serve(load.channel(), workload);
    std::vector<ServiceThreadIfc*> workers;
    for (int i = 0; i < kWorkers; ++i)
        workers.push_back(library.pool().getThread(true));
    for (ServiceThreadIfc* worker : workers)
        worker->timerEvent(nullptr, 0); // nothing to do, and back to the pool
    load.run();
}

/// The first request stays in its handler until all others have been read, and held back.
void runHeldBack(int count) {
    std::atomic<bool> open{false};
    Workload workload;
    workload.setHandler<Workload::Service>([&open](Workload::Service&, std::string_view) {
        if (!open)
            open.wait(false);
        return "";
    });
    WatchedLoad load(count, [&open, readsLeft = count]() mutable {
        if (readsLeft-- > 0)
            return;
        open = true;
        open.notify_all();
    });
    MirelContestant library(1);
    library.serve(load.channel(), workload);
    load.run();
}

const std::map<std::string, void (*)(int)> paths{
    {"direct", &runDirect},
    {"inline", &runInline},
    {"workers", &runWorkers},
    {"held_back", &runHeldBack},
};

} // namespace

} // namespace bench

/// The arguments are a path and how many requests are to take it.
int main(int argc, char** argv) {
    allocationsOfThread = &allocations.byMain;
    if (argc != 3)
        return 2;
    bench::paths.at(argv[1])(std::atoi(argv[2]));
    std::cout << allocations.byReader << ' ' << allocations.byWorkers << '\n';
}
