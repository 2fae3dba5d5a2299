#include "Cycle.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <random>
#include <thread>
#include <unistd.h>

namespace {

constexpr unsigned kLongestCycle = 100; ///< seconds

unsigned long setting(const char* variable, unsigned long otherwise) {
    const char* const text = std::getenv(variable);
    return text ? std::stoul(text) : otherwise;
}

/// Of this process, as the system counts them.
long countThreads() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

/// With the first thread a sanitizer may start one of its own. Ours is listed for a moment after it
/// has been joined.
long countThreadsToComeBackTo() {
    std::string entry;
    std::thread([&entry] { entry = "/proc/self/task/" + std::to_string(gettid()); }).join();
    EXPECT_TRUE(eventually([&entry] { return !std::filesystem::exists(entry); }));
    return countThreads();
}

std::string advice; ///< how to run the present cycle again

extern "C" void cycleHangs(int) {
    if (write(STDERR_FILENO, advice.data(), advice.size()) >= 0)
        std::abort(); // the core shows where
}

/// Lifecycles at random until the time is over. Finds what goes wrong only when threads meet in an
/// unlucky order: messages lost, doubled or overtaken, answers that do not come, threads left
/// behind, hangs, and under the sanitizers races, leaks and use after free.
TEST(Storm, Lifecycles) {
    const auto start = std::chrono::steady_clock::now();
    const auto elapsed = [start] { return std::chrono::steady_clock::now() - start; };
    const std::chrono::seconds budget(setting("MIREL_STORM_SECONDS", 5));
    const auto firstSeed =
        static_cast<std::uint32_t>(setting("MIREL_STORM_SEED", std::random_device()()));
    std::cout << "storm: seed " << firstSeed << std::endl;

    const mirel::LogSink formerSink = mirel::setLogSink([](const mirel::LogLine&) {});
    mirel::writeReportsToLog(false);
    std::signal(SIGALRM, cycleHangs);
    const long threads = countThreadsToComeBackTo();

    Totals totals;
    std::uint32_t cycles = 0;
    do {
        const std::uint32_t seed = firstSeed + cycles++;
        alarm(0);
        advice =
            "The cycle alone, until it fails again:\n  MIREL_STORM_SECONDS=0 MIREL_STORM_SEED=" +
            std::to_string(seed) +
            " storm_test --gtest_filter=Storm.Lifecycles --gtest_repeat=1000"
            " --gtest_break_on_failure\n";
        alarm(kLongestCycle);
        SCOPED_TRACE(advice);
        const Plan plan(seed);
        EXPECT_EQ("", Cycle(plan).run(totals));
        EXPECT_TRUE(eventually([threads] { return countThreads() == threads; }))
            << countThreads() << " threads, " << threads << " before";
    } while (!HasFailure() && elapsed() < budget);
    alarm(0);

    EXPECT_EQ(totals.read, totals.completed + totals.failed + totals.dropped);
    std::cout << "storm: " << cycles << " cycles in "
              << std::chrono::duration<double>(elapsed()).count() << " s; " << totals.read
              << " messages read = " << totals.completed << " completed + " << totals.failed
              << " failed + " << totals.dropped << " dropped" << std::endl;
    mirel::setLogLevels("3");
    mirel::setLogSink(formerSink);
    mirel::writeReportsToLog(true);
}

} // namespace
