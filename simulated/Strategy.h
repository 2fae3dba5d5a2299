#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace mirel::simulated {

/// A moment at which a run could go on in more than one way.
struct ChoicePoint {
    /// What can be chosen, ascending, at least two: numbers of threads, or alternatives of the
    /// scenario's own.
    const std::vector<int>& candidates;

    /// Whether threads are chosen from.
    bool threads;

    /// The thread that runs and could go on, so that choosing another one is a preemption; -1 when
    /// it cannot, or gives way, or when this is not a choice between threads.
    int current;

    /// Of what has happened so far. Equal for two moments when every thread has seen the same
    /// history of every object it has touched, in whatever order unrelated steps have happened.
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

    /// All schedules with at most this many preemptions have been run; -1: nothing is certain.
    virtual int covered() const { return -1; }
};

/// Any candidate, each as likely as the others.
std::unique_ptr<Strategy> makeRandomStrategy(std::uint64_t seed);

/// Threads have random priorities, and the most important one that can go on does. At `changes`
/// random moments of a run the running thread becomes the least important one. Finds a fault that
/// needs `changes` + 1 ordering constraints with a probability of at least 1 / (threads *
/// steps^changes) in each run. Source: Burckhardt, Kothari, Musuvathi, Nagarakatte, "A Randomized
/// Scheduler with Probabilistic Guarantees of Finding Bugs", ASPLOS 2010.
std::unique_ptr<Strategy> makePctStrategy(std::uint64_t seed, unsigned changes);

/// Every schedule with at most `preemptions` preemptions, fewest first. A moment whose state and
/// running thread are those of an earlier one, reached with no more preemptions, is not explored
/// again: the same would follow. Source for both ideas: Musuvathi, Qadeer, "Iterative Context
/// Bounding for Systematic Testing of Multithreaded Programs", PLDI 2007.
std::unique_ptr<Strategy> makeExhaustiveStrategy(unsigned preemptions);

/// One run: the choices of `schedule`, and the first candidate when there are no more. Throws
/// `std::invalid_argument` for a text that is no schedule.
std::unique_ptr<Strategy> makeReplayStrategy(const std::string& schedule);

/// The text form of a run's choices, such as "1x12.2.0x3": chosen numbers in order, repeated ones
/// with their count.
std::string scheduleText(const std::vector<int>& choices);

} // namespace mirel::simulated
