// Takes requests along one path through the library, so that what each costs can be counted:
// paths.py runs this under callgrind. What the main thread does counts for nothing. On each path
// one step follows the other, whatever the scheduler does, so that the counts repeat.

#include "ServiceExecutor.h"
#include "ServiceThreadIfc.h"
#include "ServiceThreadPool.h"
#include "bench/BatchChannel.h"
#include "bench/MirelContestant.h"
#include "bench/Peer.h"
#include "bench/Workload.h"
#include "framework/Threader.h"

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
    std::atomic<long> byMain{0};
    std::atomic<long> byReader{0};
    std::atomic<long> byWorkers{0};
};

Allocations allocations;
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
class WatchedChannel : public mirel::AnsweringChannel {
public:
    WatchedChannel(Batches& batches, std::function<void()> beforeRead)
        : m_channel(batches.channel()),
          m_beforeRead(std::move(beforeRead)) {}

    bool readMessage(CommsChannelDataContainerMessage& msg) override {
        allocationsOfThread = &allocations.byReader;
        m_beforeRead();
        return m_channel->readMessage(msg);
    }

    void close() override { m_channel->close(); }

    std::shared_ptr<mirel::AnswerSink> answerSink() override { return m_channel->answerSink(); }

private:
    const std::unique_ptr<mirel::AnsweringChannel> m_channel;
    const std::function<void()> m_beforeRead;
};

std::unique_ptr<CommsChannelIfc> watched(
    Batches& batches, std::function<void()> beforeRead = [] {}) {
    return std::make_unique<WatchedChannel>(batches, std::move(beforeRead));
}

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

/// A multi-threaded executor that runs.
class Executor {
public:
    Executor(std::unique_ptr<CommsChannelIfc> channel, Executable& service,
             mirel::ServiceContext& context, ServiceThreadPool& pool)
        : m_pool(pool),
          m_executor(&service, channel.release(), Workload::kInterface, &context, &pool, nullptr,
                     true) {
        unsigned long id = 0;
        m_executor.startThread(m_threader, id);
    }

    ~Executor() {
        m_executor.shutdown();
        m_pool.shutdown();
    }

private:
    Threader m_threader;
    ServiceThreadPool& m_pool;
    ServiceExecutor m_executor;
};

/// What the framework's own objects cost: the thread that reads calls the invoker.
class Direct : public Peer {
public:
    Direct(std::unique_ptr<CommsChannelIfc> channel, Workload& workload)
        : Peer(std::move(channel), workload) {
        startReading();
    }
    ~Direct() override { stopReading(); }

private:
    void post(const std::string&, Request request) override { request.run(); }
};

void runDirect(int count) {
    Workload workload({});
    Batches batches(Workload::requests(count, 1));
    const Direct direct(watched(batches), workload);
    batches.run();
}

void runInline(int count) {
    Workload workload({});
    Batches batches(Workload::requests(count, 1));
    const auto executor = startMirelInline(watched(batches), workload);
    batches.run();
}

/// Each request finds its channel free and goes to an idle worker. The next one is read when that
/// worker is back in the pool. It may not be asleep yet, but it is the last in line: by its next
/// turn it is.
void runWorkers(int count) {
    constexpr int kWorkers = 16;
    Workload workload({});
    Batches batches(Workload::requests(count, 1));
    Turn returned;
    WatchedPool pool(kWorkers, returned);
    const auto waitForWorkers = [&returned, out = kWorkers]() mutable {
        for (; out > 0; --out)
            returned.wait();
        out = 1; // before the next read
    };
    const Executor executor(watched(batches, waitForWorkers), workload.service(),
                            workload.context(), pool);
    std::vector<ServiceThreadIfc*> workers;
    for (int i = 0; i < kWorkers; ++i)
        workers.push_back(pool.getThread(true));
    for (ServiceThreadIfc* worker : workers)
        worker->timerEvent(nullptr, 0); // nothing to do, and back to the pool
    batches.run();
}

class GatedService : public Executable {
public:
    void open() {
        m_open = true;
        m_open.notify_all();
    }
    void pass() {
        if (!m_open)
            m_open.wait(false);
    }
    void timerEvent(int) override {}

private:
    std::atomic<bool> m_open{false};
};

/// The first request stays in its handler until all others have been read, and held back.
void runHeldBack(int count) {
    GatedService service;
    mirel::ServiceContext context;
    context.addHandler<GatedService>(Workload::kInterface, Workload::kProtocol,
                                     [](GatedService& gate, std::string_view) {
                                         gate.pass();
                                         return "";
                                     });
    Batches batches(Workload::requests(count, 1));
    ServiceThreadPool pool(1, nullptr);
    int readsLeft = count;
    const Executor executor(watched(batches,
                                    [&] {
                                        if (readsLeft-- == 0)
                                            service.open();
                                    }),
                            service, context, pool);
    batches.run();
}

const std::map<std::string, void (*)(int)> paths{
    {"direct", &runDirect},
    {"inline", &runInline},
    {"workers", &runWorkers},
    {"held_back", &runHeldBack},
};

} // namespace

} // namespace bench

int main(int argc, char** argv) {
    allocationsOfThread = &allocations.byMain;
    const auto path = argc > 2 ? bench::paths.find(argv[1]) : bench::paths.end();
    const int count = argc > 2 ? std::atoi(argv[2]) : 0;
    if (argc != 3 || path == bench::paths.end() || count < 1) {
        std::cerr << "usage: paths direct|inline|workers|held_back COUNT\n"
                     "takes COUNT requests along the path, and prints the number of allocations by "
                     "the thread that reads and by the workers\n";
        return 2;
    }
    path->second(count);
    std::cout << allocations.byReader << ' ' << allocations.byWorkers << '\n';
}
