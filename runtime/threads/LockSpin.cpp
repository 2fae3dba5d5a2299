#include "runtime/threads/LockSpin.h"

#include <unistd.h>

namespace mirel {

int mostLockSpins() {
    static const int most = sysconf(_SC_NPROCESSORS_ONLN) > 1 ? 100 : 0;
    return most;
}

} // namespace mirel
