#include "Explore.h"

#include "simulated/Exploration.h"

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <set>

using namespace mirel::simulated;

namespace {

struct Extent {
    unsigned runs; ///< of the exhaustive search; 0: as many as it takes
    unsigned randomRuns;
};
constexpr Extent kBrief{300, 50};
constexpr Extent kQuick{3000, 500};
constexpr Extent kFull{0, 5000};
constexpr std::chrono::seconds kFullTime{60};

std::set<std::string> reachedInRuns; ///< of the scenario; no run looks at it

/// As the environment says.
Extent extent() {
    const char* const set = std::getenv("MIREL_SCHEDULES");
    const std::string mode = set ? set : "quick";
    return mode == "full" ? kFull : mode == "brief" ? kBrief : kQuick;
}

/// False when a run has failed, which has been reported then.
bool passes(const std::string& name, const Exploration& exploration) {
    EXPECT_TRUE(exploration) << name << ": " << exploration;
    return static_cast<bool>(exploration);
}

/// All schedules with two preemptions, and with three where the time that each number up to two has
/// taken promises that they end in time.
Exploration exploreFully(const std::function<void()>& body) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin = Clock::now();
    Exploration done = explore({.preemptions = 1}, body);
    const std::chrono::duration<double> one = Clock::now() - begin;
    if (done)
        done = explore({.preemptions = 2}, body);
    const std::chrono::duration<double> two = Clock::now() - begin - one;
    // Of n steps there are n over k ways to choose k: each preemption more multiplies by n / k.
    const double promised = two.count() * (two / one) * 2 / 3;
    if (!done || promised > std::chrono::duration<double>(kFullTime).count())
        return done;
    const Exploration three = explore({.preemptions = 3, .time = kFullTime}, body);
    return three.failure || three.covered > done.covered ? three : done;
}

} // namespace

void reached(const char* what) { reachedInRuns.insert(what); }

void exploreScenario(const std::string& name, const std::function<void()>& body,
                     const std::vector<std::string>& reaches) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin = Clock::now();
    reachedInRuns.clear();

    const auto [runs, randomRuns] = extent();
    const bool full = runs == 0;
    ExploreOptions options;
    options.runs = runs;
    Exploration exhaustive = full ? exploreFully(body) : explore(options, body);
    if (!passes(name, exhaustive) || std::getenv("MIREL_SCHEDULE"))
        return;

    options.runs = randomRuns;
    for (const Search search : {Search::random, Search::pct}) {
        options.search = search;
        if (!passes(name, explore(options, body)))
            return;
    }
    if (full) {
        EXPECT_GE(exhaustive.covered, 2) << name;
    }
    // A search that was cut short may have missed some of them.
    for (const std::string& what :
         exhaustive.complete || full ? reaches : std::vector<std::string>())
        EXPECT_TRUE(reachedInRuns.contains(what)) << name << ": no run has reached: " << what;

    const std::chrono::duration<double> seconds = Clock::now() - begin;
    std::cout << name << ": " << exhaustive.runs << " schedules, "
              << "all with at most " << exhaustive.covered << " preemptions; " << options.runs
              << " random, " << options.runs << " pct; " << seconds.count() << " s" << std::endl;
}
