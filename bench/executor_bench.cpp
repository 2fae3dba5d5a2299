// What the executor costs per request, from the channel's read to the answer, with handlers that do
// nothing: inline, and on workers for different numbers of source channels.

#include "ServiceExecutor.h"
#include "ServiceThreadPool.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/CommsChannelIfc.h"
#include "framework/Logging.h"
#include "framework/Threader.h"
#include "standalone/AnswerSink.h"
#include "standalone/StandaloneContext.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <string>
#include <vector>

namespace {

constexpr int kBatch = 20000; ///< requests for one measured iteration

class NoService : public Executable {
    void timerEvent(int) override {}
};

std::vector<CommsChannelDataContainerMessage> requestsFrom(int sources) {
    std::vector<CommsChannelDataContainerMessage> requests(kBatch);
    for (int i = 0; i < kBatch; ++i) {
        CommsChannelDataContainerMessage& request = requests[static_cast<std::size_t>(i)];
        request.sourceChannel() = "source " + std::to_string(i % sources);
        request.channel() = "bench";
        request.interface() = "Ifc";
        request.protocol() = "text";
        request.setRequestId(i);
        request.setData(std::string(64, 'x'));
    }
    return requests;
}

/// Reads what it holds, then waits until all of it has been answered, and ends.
class PreparedChannel : public mirel::AnswerSink, public CommsChannelIfc {
public:
    explicit PreparedChannel(const std::vector<CommsChannelDataContainerMessage>& requests)
        : m_requests(requests) {}
    bool readMessage(CommsChannelDataContainerMessage& msg) override {
        if (m_next < m_requests.size()) {
            msg = m_requests[m_next++];
            return true;
        }
        for (int answered = m_answered; answered < kBatch; answered = m_answered)
            m_answered.wait(answered);
        return false;
    }
    void close() override {}
    std::shared_ptr<mirel::AnswerSink> answerSink() override {
        return {std::shared_ptr<void>(), this};
    }
    void answer(mirel::Answer) override {
        if (++m_answered == kBatch)
            m_answered.notify_one();
    }

private:
    const std::vector<CommsChannelDataContainerMessage>& m_requests;
    std::size_t m_next = 0;
    std::atomic<int> m_answered{0};
};

void serve(benchmark::State& state, bool multiThreaded, int sources) {
    const auto requests = requestsFrom(sources);
    mirel::StandaloneContext context;
    NoService service;
    context.addHandler<NoService>("Ifc", "text", [](NoService&, std::string_view) { return ""; });
    ServiceThreadPool pool(sources, nullptr);
    Threader threader;
    for (auto _ : state) {
        ServiceExecutor executor(&service, new PreparedChannel(requests), "Ifc", &context, &pool,
                                 nullptr, multiThreaded);
        unsigned long id = 0;
        executor.startThread(threader, id);
        executor.waitForThreadCompletion();
        // The last workers may still be on their way out of the executor, which must outlive them.
        pool.shutdown();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

void Inline(benchmark::State& state) { serve(state, false, 1); }
BENCHMARK(Inline)->UseRealTime()->Unit(benchmark::kMillisecond);

void OnWorkers(benchmark::State& state) { serve(state, true, static_cast<int>(state.range(0))); }
BENCHMARK(OnWorkers)->ArgName("sources")->Arg(1)->Arg(8)->Arg(64)->Arg(512)->UseRealTime()->Unit(
    benchmark::kMillisecond);

void LoggingOff(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(loggingOnAppUni("ServiceExecutor", 6));
}
BENCHMARK(LoggingOff);

} // namespace
