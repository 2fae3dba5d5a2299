#include "runtime/threads/ThreadOptions.h"

#include "framework/MirelException.h"
#include "runtime/threads/Mutex.h"

#include <limits>
#include <string>

namespace mirel {

namespace {

struct CurrentOptions {
    Mutex mutex;
    ThreadOptions options MIREL_GUARDED_BY(mutex);
};

/// Never destroyed: threads may be started until the process is gone.
CurrentOptions& current() {
    static CurrentOptions& theCurrent = *new CurrentOptions;
    return theCurrent;
}

void checkRange(const char* what, long long value, long long lowest, long long highest) {
    if (value < lowest || value > highest)
        throw MirelException(std::string("thread options: ") + what + " is " +
                                 std::to_string(value) + " and must be from " +
                                 std::to_string(lowest) + " to " + std::to_string(highest),
                             __FILE__, __LINE__);
}

} // namespace

void setThreadOptions(const ThreadOptions& options) {
    constexpr auto kLargestStack = std::numeric_limits<std::size_t>::max() / 4;
    if (options.stackSize == 0 || options.stackSize > kLargestStack)
        throw MirelException("thread options: a stack of " + std::to_string(options.stackSize) +
                                 " bytes is not possible",
                             __FILE__, __LINE__);
    checkRange("niceStep", options.niceStep, 0, 9);
    checkRange("realTimePriority", options.realTimePriority, 0, 97);
    checkRange("startPatience (ms)", options.startPatience.count(), 0, 3'600'000);
    const Lock lock(current().mutex);
    current().options = options;
}

ThreadOptions threadOptions() {
    const Lock lock(current().mutex);
    return current().options;
}

} // namespace mirel
