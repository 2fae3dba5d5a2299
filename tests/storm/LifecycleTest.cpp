#include "Round.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <random>
#include <thread>
#include <unistd.h>

namespace {

constexpr unsigned kLongestRound = 100; ///< seconds

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

std::string advice; ///< how to run the present round again

extern "C" void roundHangs(int) {
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
    std::signal(SIGALRM, roundHangs);
    const long threads = countThreadsToComeBackTo();

    Totals totals;
    std::uint32_t rounds = 0;
    do {
        const std::uint32_t seed = firstSeed + rounds++;
        alarm(0);
        advice =
            "The round alone, until it fails again:\n  MIREL_STORM_SECONDS=0 MIREL_STORM_SEED=" +
            std::to_string(seed) +
            " storm_test --gtest_filter=Storm.Lifecycles --gtest_repeat=1000"
            " --gtest_break_on_failure\n";
        alarm(kLongestRound);
        SCOPED_TRACE(advice);
        const RoundPlan plan(seed);
        EXPECT_EQ("", Round(plan).run(totals));
        EXPECT_TRUE(eventually([threads] { return countThreads() == threads; }))
            << countThreads() << " threads, " << threads << " before";
    } while (!HasFailure() && elapsed() < budget);
    alarm(0);

    EXPECT_EQ(totals.read, totals.completed + totals.failed + totals.dropped);
    std::cout << "storm: " << rounds << " rounds in "
              << std::chrono::duration<double>(elapsed()).count() << " s; " << totals.read
              << " messages read = " << totals.completed << " completed + " << totals.failed
              << " failed + " << totals.dropped << " dropped" << std::endl;
    mirel::setLogLevels("3");
    mirel::setLogSink(formerSink);
    mirel::writeReportsToLog(true);
}

} // namespace
