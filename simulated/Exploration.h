#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>

namespace mirel::simulated {

/// How the runs of an exploration are chosen.
enum class Search {
    exhaustive, ///< every schedule up to a number of preemptions
    random,     ///< any thread at each step, each as likely as the others
    pct,        ///< by random priorities that change at a few random moments
};

struct ExploreOptions {
    Search search = Search::exhaustive;

    /// Moments of a run at which a thread that could go on has to stand back: all of them, up to
    /// this number of them (exhaustive), or this number of random ones (pct).
    unsigned preemptions = 2;

    /// The exploration ends after this many runs, or this time; 0: no such limit. Random searches
    /// need one of the two.
    unsigned long runs = 0;
    std::chrono::seconds time{0};

    /// For the random searches.
    std::uint64_t seed = 1;

    /// A run with more steps has failed: it makes no progress.
    std::size_t stepLimit = 20000;

    /// If not empty, one run by this schedule, which a failing run has printed. The environment
    /// variable MIREL_SCHEDULE sets it for all explorations of a program.
    std::string schedule = {};
};

/// What came out of an exploration.
struct Exploration {
    struct Failure {
        std::string what;
        std::string positions; ///< where each thread stood
        std::string schedule;  ///< replays the run, see `ExploreOptions::schedule`
    };

    unsigned long runs = 0;
    bool complete = false; ///< nothing is left to explore

    /// Every schedule with at most this many preemptions has been run; -1: nothing is certain.
    int covered = -1;
    std::optional<Failure> failure;

    /// No run has failed, and there was at least one.
    explicit operator bool() const { return runs > 0 && !failure; }

    /// Several lines for a person.
    std::string text() const;
};

std::ostream& operator<<(std::ostream& out, const Exploration& exploration);

/// Runs `body` again and again, each time with another order of its threads' steps, until one run
/// fails, or all are done, or a limit is reached. `body` is thread 0 of each run; the run goes on
/// until all threads have ended. It makes everything anew that its threads use, and what it does
/// must depend on nothing but the order of steps: no real clock, no real random numbers.
///
/// A run fails by `require`, an exception out of a thread, a deadlock, a run that does not end, the
/// use of a semaphore or thread object after its destruction, or one of those left behind at the
/// end. What a failed run owns is never freed.
Exploration explore(const ExploreOptions& options, const std::function<void()>& body);

} // namespace mirel::simulated
