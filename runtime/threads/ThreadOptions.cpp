#include "runtime/threads/ThreadOptions.h"

#include "framework/MirelException.h"
#include "runtime/threads/Mutex.h"
#include "runtime/threads/ThreadKeeper.h"

#include <limits>
#include <string>

namespace mirel {

namespace {

struct CurrentOptions {
    CurrentOptions() { keep(); }

    void set(const ThreadOptions& wanted) {
        const Lock lock(mutex);
        static_cast<ThreadOptions&>(options) = wanted;
        ++options.version;
        keep();
    }

    void keep() MIREL_REQUIRES(mutex) {
        keeper.setLimits(options.version, static_cast<std::size_t>(options.keptThreads),
                         options.keptFor);
    }

    Mutex mutex;
    VersionedThreadOptions options MIREL_GUARDED_BY(mutex);
    ThreadKeeper keeper;
};

/// Never destroyed: threads may be started, and rest, until the process is gone.
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
    checkRange("keptThreads", options.keptThreads, 0, 100'000);
    checkRange("keptFor (ms)", options.keptFor.count(), 0, 86'400'000);
    checkRange("startPatience (ms)", options.startPatience.count(), 0, 3'600'000);
    current().set(options);
}

VersionedThreadOptions versionedThreadOptions() {
    const Lock lock(current().mutex);
    return current().options;
}

ThreadOptions threadOptions() { return versionedThreadOptions(); }

ThreadKeeper& threadKeeper() { return current().keeper; }

} // namespace mirel
