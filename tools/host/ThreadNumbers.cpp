#include "host/ThreadNumbers.h"

#include "framework/Logging.h"
#include "host/HostOptions.h"
#include "runtime/threads/ThreadRoom.h"

#include <algorithm>

namespace mirel {

namespace {

constexpr unsigned long kUsualWorkers = 1000;
constexpr unsigned long kShareOfWorkers = 2;
constexpr unsigned long kShareOfRest = 8; ///< of workers kept, and of threads kept

int atMost(int wanted, unsigned long most) {
    return static_cast<int>(std::min(static_cast<unsigned long>(wanted), most));
}

} // namespace

ThreadNumbers::ThreadNumbers(const HostOptions& options)
    : workers(options.maxWorkers),
      maxPool(options.maxPool),
      keptThreads(options.threads.keptThreads) {
    if (workers != 0)
        return;
    const ThreadRoom room(options.threads.stackSize);
    workers = std::clamp(room.threads() / kShareOfWorkers, 1UL, kUsualWorkers);
    maxPool = atMost(maxPool, room.threads() / kShareOfRest);
    keptThreads = atMost(keptThreads, room.threads() / kShareOfRest);
    if (workers < kUsualWorkers)
        logAppUni("Host", __FILE__, 3, __LINE__,
                  "at most %lu workers are in use at once: the system lets this process start %lu "
                  "threads more (%s)",
                  workers, room.threads(), room.reason().c_str());
}

} // namespace mirel
