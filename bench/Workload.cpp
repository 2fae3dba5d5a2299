#include "bench/Workload.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

/// Arithmetic whose every step needs the one before.
std::uint64_t compute(std::uint64_t steps) {
    std::uint64_t value = steps;
    for (std::uint64_t i = 0; i < steps; ++i)
        value = value * 6364136223846793005U + 1442695040888963407U;
    asm volatile("" : : "r"(value));
    return value;
}

/// The best of many short measurements: others were interrupted. An amount of work and not a time to
/// wait for, so that a handler whose thread loses its core still has all of its work before it.
std::uint64_t measureStepsPerMicrosecond() {
    constexpr std::uint64_t kSteps = 50'000;
    std::chrono::nanoseconds best = std::chrono::hours(1);
    for (int i = 0; i < 200; ++i) {
        const auto begin = Clock::now();
        compute(kSteps);
        best = std::min<std::chrono::nanoseconds>(best, Clock::now() - begin);
    }
    return kSteps * 1000 / static_cast<std::uint64_t>(best.count());
}

std::uint64_t stepsPerMicrosecond() {
    static const std::uint64_t steps = measureStepsPerMicrosecond();
    return steps;
}

void block(int microseconds) {
    const timespec time{0, microseconds * 1000L};
    nanosleep(&time, nullptr);
}

} // namespace

std::string HandlerCost::name() const {
    return std::to_string(microseconds) + (blocks ? "us_blocking" : "us");
}

Workload::Workload(HandlerCost cost) {
    const auto add = [this](auto handler) {
        m_context.addHandler<NoService>(kInterface, kProtocol, handler);
    };
    if (cost.microseconds == 0)
        add([](NoService&, std::string_view) { return ""; });
    else if (cost.blocks)
        add([cost](NoService&, std::string_view) {
            block(cost.microseconds);
            return "";
        });
    else
        add([steps = stepsPerMicrosecond() *
                     static_cast<std::uint64_t>(cost.microseconds)](NoService&, std::string_view) {
            compute(steps);
            return "";
        });
}

std::vector<CommsChannelDataContainerMessage> Workload::requests(int count, int sources) {
    std::vector<CommsChannelDataContainerMessage> requests(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        CommsChannelDataContainerMessage& request = requests[static_cast<std::size_t>(i)];
        request.sourceChannel() = "source " + std::to_string(i % sources);
        request.channel() = "bench";
        request.interface() = kInterface;
        request.protocol() = kProtocol;
        request.setRequestId(i);
        request.setData(std::string(64, 'x'));
    }
    return requests;
}

} // namespace bench
