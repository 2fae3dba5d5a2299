#include "runtime/threads/ThreadStartHook.h"

#include "runtime/threads/Mutex.h"
#include "runtime/threads/PendingWakeUps.h"

#include <atomic>
#include <memory>
#include <utility>

namespace mirel {

namespace {

struct StartHook {
    std::atomic<bool> isSet{
        false}; ///< read first, so that nobody pays for a hook that is not there
    Mutex mutex;
    std::shared_ptr<std::function<int()>> call MIREL_GUARDED_BY(mutex); ///< null: none
};

StartHook& startHook() {
    static StartHook& hook = *new StartHook;
    return hook;
}

} // namespace

int callThreadStartHook() {
    if (!startHook().isSet)
        return 0;
    std::shared_ptr<std::function<int()>> hook;
    {
        const Lock lock(startHook().mutex);
        hook = startHook().call;
    }
    const WakeUpsAtOnce wakeUpsAtOnce; // it may wait
    return hook ? (*hook)() : 0;
}

void setThreadStartHook(std::function<int()> hook) {
    auto call = hook ? std::make_shared<std::function<int()>>(std::move(hook)) : nullptr;
    const Lock lock(startHook().mutex);
    startHook().call.swap(call);
    startHook().isSet = startHook().call != nullptr;
}

} // namespace mirel
