#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace mirel::simulated {

/// A moment at which a run could go on in more than one way.
struct ChoicePoint {
    /// What can be chosen, at least two: alternatives of the scenario's own, or numbers of threads.
    /// First those that are ready, ascending, then those that can go on because their time comes.
    const std::vector<int>& candidates;
    std::size_t ready;

    /// Whether threads are chosen from.
    bool threads;

    /// The thread that took the last step.
    int last;

    /// The same when it is ready to go on, so that choosing another one is a preemption; -1 when it
    /// is not, or gives way, or when this is not a choice between threads.
    int current;

    /// Of what has happened so far and of `current`. Equal for two moments when every thread has
    /// seen the same history of every object it has touched, in whatever order unrelated steps
    /// happened.
    std::uint64_t state;
};

/// Decides how the runs of an exploration go. One run at a time.
class Strategy {
public:
    virtual ~Strategy() = default;

    /// Returns one of the point's candidates.
    virtual int choose(const ChoicePoint& point) = 0;

    /// After each run. False when there is nothing left to explore.
    virtual bool nextRun() = 0;

    /// Not empty when the run was not the one that was asked for, and why that may be.
    virtual std::string complaint() const { return {}; }

    /// All schedules with at most this many preemptions have been run; -1: nothing is certain.
    virtual int covered() const { return -1; }
};

/// Any candidate, each as likely as the others.
std::unique_ptr<Strategy> makeRandomStrategy(std::uint64_t seed);

/// Threads have random priorities, and the most important one that is ready goes on. At `changes`
/// random choices of a run the thread that took the last step becomes the least important one, or
/// time passes. Finds faults that need few orders between steps far apart. The idea is that of
/// Burckhardt, Kothari, Musuvathi, Nagarakatte, "A Randomized Scheduler with Probabilistic
/// Guarantees of Finding Bugs", ASPLOS 2010; their bound counts steps, this counts choices, and the
/// first run, which measures their number, has no changes.
std::unique_ptr<Strategy> makePctStrategy(std::uint64_t seed, unsigned changes);

/// Every schedule with at most `preemptions` preemptions, fewest first. To let time pass while a
/// thread is ready counts as one. A moment whose state and
/// running thread are those of an earlier one, reached with no more preemptions, is not explored
/// again: the same would follow. Source for both ideas: Musuvathi, Qadeer, "Iterative Context
/// Bounding for Systematic Testing of Multithreaded Programs", PLDI 2007.
std::unique_ptr<Strategy> makeExhaustiveStrategy(unsigned preemptions);

/// One run: the choices of `schedule`, and no preemption when there are no more. Throws
/// `std::invalid_argument` for a text that is no schedule.
std::unique_ptr<Strategy> makeReplayStrategy(const std::string& schedule);

/// The text form of a run's choices, such as "1x12.2.0x3": chosen numbers in order, repeated ones
/// with their count.
std::string scheduleText(const std::vector<int>& choices);

} // namespace mirel::simulated
