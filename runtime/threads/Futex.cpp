#include "runtime/threads/Futex.h"

#include <cerrno>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace mirel {

namespace {

using Clock = std::chrono::steady_clock; // CLOCK_MONOTONIC, which the kernel's deadlines refer to

/// The layout that SYS_futex reads: two machine words. A C library with a 64-bit time_t on a 32-bit
/// system has another one for its own timespec.
struct KernelTime {
    long seconds;
    long nanoseconds;
};

KernelTime kernelTime(Clock::time_point time) {
    const auto sinceBoot = time.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceBoot);
    const std::chrono::nanoseconds rest = sinceBoot - seconds;
    return {static_cast<long>(seconds.count()), static_cast<long>(rest.count())};
}

long wait(FutexWord& word, int operation, std::uint32_t value, const Deadline& deadline) {
    KernelTime time{};
    if (deadline)
        time = kernelTime(*deadline);
    return syscall(SYS_futex, &word, operation, value, deadline ? &time : nullptr, nullptr,
                   FUTEX_BITSET_MATCH_ANY);
}

} // namespace

bool futexWait(FutexWord& word, std::uint32_t value, const Deadline& deadline) {
    return wait(word, FUTEX_WAIT_BITSET_PRIVATE, value, deadline) == 0 || errno != ETIMEDOUT;
}

void futexWake(const void* address) { syscall(SYS_futex, address, FUTEX_WAKE_PRIVATE, 1); }

std::uint32_t futexThread() {
    static thread_local const auto self = static_cast<std::uint32_t>(gettid());
    return self;
}

bool futexOwn(FutexWord& word, const Deadline& deadline) {
    while (wait(word, FUTEX_LOCK_PI2_PRIVATE, 0, deadline) != 0) {
        if (errno == ETIMEDOUT)
            return false;
        if (errno != EAGAIN && errno != EINTR && errno != ENOMEM)
            return true;
    }
    return true;
}

void futexDisown(FutexWord& word) { syscall(SYS_futex, &word, FUTEX_UNLOCK_PI_PRIVATE); }

bool futexHasOwners() {
    // Since Linux 5.14; the older call has deadlines by the time of day.
    static const bool has = [] {
        FutexWord nobodys{0};
        return wait(nobodys, FUTEX_LOCK_PI2_PRIVATE, 0, std::nullopt) == 0;
    }();
    return has;
}

} // namespace mirel
