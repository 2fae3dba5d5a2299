#include "bench/MirelContestant.h"

#include "ServiceExecutor.h"
#include "ServiceThreadPool.h"
#include "bench/Workload.h"
#include "framework/Threader.h"

namespace bench {

namespace {

class MirelContestant : public Contestant {
public:
    MirelContestant(std::unique_ptr<CommsChannelIfc> channel, Workload& workload, int threads,
                    bool multiThreaded)
        : m_pool(threads, nullptr),
          m_executor(&workload.service(), channel.release(), Workload::kInterface,
                     &workload.context(), &m_pool, nullptr, multiThreaded) {
        unsigned long id = 0;
        m_executor.startThread(m_threader, id);
    }

    ~MirelContestant() override {
        m_executor.shutdown();
        // The last workers may still be on their way out of the executor.
        m_pool.shutdown();
    }

private:
    Threader m_threader;
    ServiceThreadPool m_pool;
    ServiceExecutor m_executor;
};

} // namespace

std::unique_ptr<Contestant> startMirel(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
                                       int threads) {
    return std::make_unique<MirelContestant>(std::move(channel), workload, threads, true);
}

std::unique_ptr<Contestant> startMirelInline(std::unique_ptr<CommsChannelIfc> channel,
                                             Workload& workload) {
    return std::make_unique<MirelContestant>(std::move(channel), workload, 0, false);
}

} // namespace bench
