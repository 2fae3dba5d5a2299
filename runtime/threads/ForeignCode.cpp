#include "runtime/values/ForeignCode.h"

#include "runtime/threads/PendingWakeUps.h"

namespace mirel {

void callForeignCode(const std::function<void()>& call) {
    const WakeUpsAtOnce wakeUpsAtOnce;
    call();
}

} // namespace mirel
