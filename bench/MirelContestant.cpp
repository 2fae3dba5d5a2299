#include "bench/MirelContestant.h"

#include "bench/SharedPool.h"

namespace bench {

namespace {

class MirelContestant : public Contestant {
public:
    MirelContestant(std::unique_ptr<CommsChannelIfc> channel, Workload& workload, int threads,
                    bool multiThreaded)
        : m_pool(threads) {
        m_pool.serve(std::move(channel), workload, multiThreaded);
    }

private:
    SharedPool m_pool;
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
