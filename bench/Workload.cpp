#include "bench/Workload.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <stdexcept>

namespace bench {

namespace {

constexpr char kFails = '!'; // the first byte of a marked request

using Clock = std::chrono::steady_clock;

/// Arithmetic whose every step needs the one before.
std::uint64_t compute(std::uint64_t steps) {
    std::uint64_t value = steps;
    for (std::uint64_t i = 0; i < steps; ++i)
        value = value * 6364136223846793005U + 1442695040888963407U;
    asm volatile("" : : "r"(value));
    return value;
}

/// The best of many short measurements: others were interrupted. An amount of work and not a time
/// to wait for, so that a handler whose thread loses its core still has all its work before it.
std::uint64_t measuredStepsPerMicrosecond() {
    constexpr std::uint64_t kSteps = 50'000;
    std::chrono::nanoseconds best = std::chrono::hours(1);
    for (int i = 0; i < 200; ++i) {
        const auto begin = Clock::now();
        compute(kSteps);
        best = std::min<std::chrono::nanoseconds>(best, Clock::now() - begin);
    }
    return kSteps * 1000 / static_cast<std::uint64_t>(best.count());
}

} // namespace

std::string HandlerCost::name() const {
    return std::to_string(microseconds) + (blocks ? "us_blocking" : "us");
}

Workload::Workload(HandlerCost cost) {
    if (cost.fails)
        setHandler<Service>([](Service&, std::string_view data) {
            if (data.front() == kFails)
                throw std::runtime_error("one of ten");
            return "";
        });
    else if (cost.microseconds == 0)
        setHandler<Service>([](Service&, std::string_view) { return ""; });
    else if (cost.blocks)
        setHandler<Service>(
            [time = timespec{0, cost.microseconds * 1000L}](Service&, std::string_view) {
                nanosleep(&time, nullptr);
                return "";
            });
    else {
        static const std::uint64_t perMicrosecond = measuredStepsPerMicrosecond();
        const auto steps = perMicrosecond * static_cast<std::uint64_t>(cost.microseconds);
        setHandler<Service>([steps](Service&, std::string_view) {
            compute(steps);
            return "";
        });
    }
}

std::vector<CommsChannelDataContainerMessage> Workload::requests(int count, int sources,
                                                                 const char* protocol) {
    std::vector<CommsChannelDataContainerMessage> requests(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        CommsChannelDataContainerMessage& request = requests[static_cast<std::size_t>(i)];
        request.sourceChannel() = "source " + std::to_string(i % sources);
        request.channel() = "bench";
        request.interface() = kInterface;
        request.protocol() = protocol;
        request.setRequestId(i);
        request.setData((i % 10 == 0 ? kFails : 'x') + std::string(63, 'x'));
    }
    return requests;
}

} // namespace bench
