#include "bench/Contestant.h"

#include "bench/MirelContestant.h"
#include "bench/Peers.h"

#include <thread>

namespace bench {

std::unique_ptr<Contestant> Kind::start(std::unique_ptr<CommsChannelIfc> channel,
                                        Workload& workload, int sources) const {
    const int cores = static_cast<int>(std::thread::hardware_concurrency());
    return make(std::move(channel), workload, threads == eOnePerSource ? sources : cores);
}

const std::vector<Kind>& contestants() {
    static const std::vector<Kind> all{
        {"mirel", Kind::eOnePerSource, &startMirel},
        {"asio", Kind::eOnePerSource, &startAsio},
        {"tbb", Kind::eOnePerSource, &startTbb},
        {"caf", Kind::eOnePerSource, &startCaf},
        {"student", Kind::eOnePerSource, &startStudentPool},
        {"asio_cores", Kind::eOnePerCore, &startAsio},
        {"tbb_cores", Kind::eOnePerCore, &startTbb},
        {"caf_cores", Kind::eOnePerCore, &startCaf},
        {"student_cores", Kind::eOnePerCore, &startStudentPool},
    };
    return all;
}

} // namespace bench
