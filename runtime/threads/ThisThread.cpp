#include "runtime/threads/PendingWakeUps.h"

namespace mirel {

PendingWakeUps& PendingWakeUps::ofThisThread() {
    static thread_local constinit PendingWakeUps pending;
    return pending;
}

} // namespace mirel
