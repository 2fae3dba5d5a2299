#include "bench/FutexWord.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace bench {

void FutexWord::sleep() {
    while (m_set.exchange(0) == 0)
        syscall(SYS_futex, &m_set, FUTEX_WAIT_PRIVATE, 0, nullptr);
}

bool FutexWord::wake() {
    m_set = 1;
    return syscall(SYS_futex, &m_set, FUTEX_WAKE_PRIVATE, 1) == 1;
}

} // namespace bench
