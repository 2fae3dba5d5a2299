#pragma once

#include "simulated/Fiber.h"
#include "simulated/Lifetimes.h"
#include "simulated/RunState.h"
#include "simulated/Strategy.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace mirel::simulated {

using Duration = std::chrono::nanoseconds;

/// What a step does to an object, as far as others can see.
enum class Access { read, write };

/// The next step of a thread: it can be taken when `ready` says so, or when its time has come.
struct Step {
    const char* what;   ///< for reports; a literal
    const void* object; ///< what it concerns; null: nothing that others see
    Access access = Access::write;

    /// Whether the step can be taken; null: always. Must change nothing.
    bool (*ready)(const void* argument) = nullptr;
    const void* argument = nullptr;

    /// On the virtual clock. The step can be taken then in any case.
    std::optional<Duration> deadline = std::nullopt;

    /// Lets every other thread that can go on go first.
    bool givesWay = false;
};

/// One thread of a simulated run.
struct SimulatedThread {
    SimulatedThread(int n, std::string t, std::function<void()> body)
        : number(n),
          name(std::move(t)),
          fiber(std::move(body)) {}

    const int number; ///< in order of creation, from 0
    const std::string name;
    Fiber fiber;
    const Step* next = nullptr; ///< what it stands before; null while it runs
    std::uint64_t history = 0;  ///< of all that it has seen
    bool begun = false;
    bool ended = false;
    bool unwound = false; ///< it has ended itself, and all its frames are gone
    /// It gave way: bits for the threads that were ready then, and go first.
    std::uint64_t after = 0;

    bool released = true; ///< somebody has waited for it or detached it, or nobody has to
    std::string position; ///< filled in for the report of a failure
};

/// How a run ended when it did not end well.
struct RunFailure {
    std::string what;
    std::string positions; ///< of every thread that had not ended, several lines
};

/// Runs one body with all its threads, one at a time, and asks a strategy who goes next at each
/// step. Everything runs on the OS thread that calls `run`.
class Scheduler {
public:
    /// `stepLimit`: a run that takes more steps fails as one that makes no progress.
    Scheduler(Strategy& strategy, std::size_t stepLimit);
    ~Scheduler();

    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

    /// The one whose run the caller is part of; null outside of runs, and inside its own workings.
    static Scheduler* current();

    /// The same, and in its own workings as well.
    static Scheduler* ofRun();

    /// Runs `body` as thread 0 until all threads have ended, or the run fails. The threads of a run
    /// that fails are left where they are, with all that they own.
    std::optional<RunFailure> run(const std::function<void()>& body);

    /// What the strategy has chosen in this run.
    const std::vector<int>& choices() const { return m_choices; }

    // For the threads of the run.

    /// Lets the strategy decide who goes next, and returns when this thread may take the step.
    /// False when it is taken because its time has come.
    bool perform(const Step& step);

    /// A decision of the scenario's own: 0 to `alternatives` - 1.
    int pick(int alternatives);

    /// Makes a thread; it runs when it is chosen.
    SimulatedThread& spawn(std::string name, std::function<void()> body);

    SimulatedThread& running() { return *m_running; }

    /// Null when there has been no thread of this number.
    SimulatedThread* thread(int number);

    /// What the running thread does to an object together with its last step, or before its end.
    void touch(const void* object);

    /// The running thread has seen what all others have done so far.
    void touchEverything();

    // For the objects of the framework.

    void born(const void* object, const char* kind) { m_lifetimes.born(object, kind); }

    /// Fails the run when it has been destroyed before, or a thread stands before a step on it.
    void destroyed(const void* object);

    /// Fails the run when the object has been destroyed; `what` is about to be done to it.
    void requireAlive(const void* object, const char* what);

    /// Ends the run as failed.
    [[noreturn]] void fail(std::string what);

    Duration time() const { return m_now; }

    /// The same, as something that the running thread has seen.
    Duration now();

    RunState state; ///< of the parts of the framework

    /// Called before each step and whenever a semaphore has been given, without any other thread
    /// running meanwhile; must take no step itself.
    void checkAtEachStep(std::function<void()> check) { m_check = std::move(check); }
    void check();

private:
    static std::uint64_t bitOf(const SimulatedThread& thread);
    bool canGoOn(const SimulatedThread& thread);
    std::uint64_t readyOthers(const SimulatedThread& self);
    void addSleepers(std::vector<int>& candidates);
    void callCheck();
    SimulatedThread* chooseNext();
    int choose(const std::vector<int>& candidates, std::size_t ready, bool threads, int current);
    void goTo(SimulatedThread& next);
    void record(const void* object, Access access);
    void endThread();
    std::string leftBehind() const;
    void collectPositions();
    [[noreturn]] void leave();
    std::uint64_t history() const;

    Strategy& m_strategy;
    const std::size_t m_stepLimit;

    Fiber m_outside; ///< the caller of `run`
    std::vector<std::unique_ptr<SimulatedThread>> m_threads;
    SimulatedThread* m_running = nullptr;
    SimulatedThread* m_reporter = nullptr; ///< who collects the positions; null while all is well
    std::size_t m_steps = 0;
    Duration m_now{};
    std::vector<int> m_choices;
    std::vector<int> m_candidates; ///< used again at each step

    /// For each object, the history of the thread that wrote to it last, at that moment.
    std::unordered_map<const void*, std::uint64_t> m_written;
    Lifetimes m_lifetimes;
    std::function<void()> m_check;
    std::optional<RunFailure> m_failure;
};

} // namespace mirel::simulated
