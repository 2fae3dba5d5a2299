#include "bench/Crowd.h"

#include "bench/SharedPool.h"

#include <string_view>
#include <thread>

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kProtocol = "crowd";

std::vector<CommsChannelDataContainerMessage> makeRequests(int size) {
    std::vector<CommsChannelDataContainerMessage> requests = Workload::requests(size, size);
    for (CommsChannelDataContainerMessage& request : requests)
        request.protocol() = kProtocol;
    return requests;
}

} // namespace

Crowd::Crowd(int size) : m_size(size), m_workload(HandlerCost{}), m_batches(makeRequests(size)) {
    m_workload.context().addHandler<Executable>(Workload::kInterface, kProtocol,
                                                [this](Executable&, std::string_view) {
                                                    waitForAll();
                                                    return "";
                                                });
}

std::chrono::nanoseconds Crowd::gather(SharedPool& pool) {
    pool.serve(m_batches.channel(), m_workload);
    const Clock::time_point begin = Clock::now();
    m_batches.run();
    // A worker answers first and goes back to the pool then; there is nothing to wait on.
    while (pool.pool().availableThreads(ePriorityNormal) < m_size)
        std::this_thread::yield();
    const std::lock_guard lock(m_mutex);
    return m_completedAt - begin;
}

void Crowd::waitForAll() {
    std::unique_lock lock(m_mutex);
    if (++m_inside == m_size) {
        m_completedAt = Clock::now();
        m_complete.notify_all();
    }
    m_complete.wait(lock, [this] { return m_inside == m_size; });
}

} // namespace bench
