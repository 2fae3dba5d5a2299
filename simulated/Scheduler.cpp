#include "simulated/Scheduler.h"

#include "simulated/Memory.h"
#include "simulated/StackText.h"

#include <algorithm>
#include <cxxabi.h>
#include <exception>
#include <utility>

namespace mirel::simulated {

namespace {

thread_local Scheduler* ofThisRun = nullptr;
thread_local Scheduler* active = nullptr; ///< `ofThisRun`, or null in the scheduler's own workings

/// While the scheduler works on behalf of a thread of the run: what it calls meanwhile takes no
/// steps, and its memory is not the run's.
class Inside {
public:
    explicit Inside(Scheduler* scheduler) : m_scheduler(scheduler) { activate(nullptr); }
    ~Inside() { activate(m_scheduler); }

    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

    static void activate(Scheduler* scheduler) {
        active = scheduler;
        trackMemory(scheduler != nullptr);
    }

private:
    Scheduler* const m_scheduler;
};

/// Source of the constants: the finalizer of SplitMix64 (Steele, Lea, Flood, OOPSLA 2014).
std::uint64_t mix(std::uint64_t history, std::uint64_t event) {
    std::uint64_t z = (history ^ (event * 0x9e3779b97f4a7c15U)) + 0x9e3779b97f4a7c15U;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9U;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebU;
    return z ^ (z >> 31);
}

std::string textOfCurrentException() {
    try {
        throw;
    } catch (const std::exception& failure) {
        return failure.what();
    } catch (...) {
        return "of an unknown type";
    }
}

} // namespace

Scheduler::Scheduler(Strategy& strategy, std::size_t stepLimit)
    : m_strategy(strategy),
      m_stepLimit(stepLimit) {}

Scheduler::~Scheduler() {
    // What the threads of a failed run own is still referred to, from stacks that are never left.
    static auto& abandoned = *new std::vector<std::unique_ptr<SimulatedThread>>;
    for (auto& thread : m_threads)
        if (!thread->ended) {
            thread->fiber.abandon();
            abandoned.push_back(std::move(thread));
        }
}

Scheduler* Scheduler::current() { return active; }
Scheduler* Scheduler::ofRun() { return ofThisRun; }

std::optional<RunFailure> Scheduler::run(const std::function<void()>& body) {
    ofThisRun = this;
    SimulatedThread& first = spawn("main", body);
    first.begun = true;
    m_running = &first;
    m_outside.switchTo(first.fiber);
    ofThisRun = nullptr;
    if (const std::string left = leftBehind(); !m_failure && !left.empty())
        m_failure = RunFailure{left, ""};
    freeRunMemory();
    return m_failure;
}

/// What should not be there any more when all threads have ended.
std::string Scheduler::leftBehind() const {
    for (const auto& thread : m_threads)
        if (!thread->released)
            return "thread " + std::to_string(thread->number) + " (" + thread->name +
                   ") was neither waited for nor detached";
    const std::string living = m_lifetimes.living();
    return living.empty() ? "" : "never destroyed: " + living;
}

// ---- Steps -----------------------------------------------------------------------------------

bool Scheduler::perform(const Step& step) {
    const Inside inside(this);
    SimulatedThread& self = *m_running;
    self.next = &step;
    if (step.deadline)
        self.history = mix(self.history, static_cast<std::uint64_t>(step.deadline->count()));
    if (step.givesWay) {
        self.history = mix(self.history, 12);
        self.after = readyOthers(self);
    }
    callCheck();
    if (++m_steps > m_stepLimit)
        fail("no progress: the run has not ended after " + std::to_string(m_stepLimit) + " steps");
    SimulatedThread* const next = chooseNext();
    if (!next)
        fail("deadlock: no thread can go on");
    goTo(*next);
    for (const auto& thread : m_threads)
        thread->after &= ~bitOf(self);
    if (m_reporter) {
        self.position = std::string(" before: ") + step.what + "\n" + stackText();
        self.fiber.switchTo(m_reporter->fiber);
    }
    const bool ready = !step.ready || step.ready(step.argument);
    if (!ready)
        m_now = std::max(m_now, *step.deadline);
    self.next = nullptr;
    self.history = mix(self.history, ready ? 0 : static_cast<std::uint64_t>(m_now.count()));
    record(step.object, step.access);
    return ready;
}

void Scheduler::check() {
    const Inside inside(this);
    callCheck();
}

void Scheduler::callCheck() {
    if (!m_check)
        return;
    try {
        m_check();
    } catch (...) {
        fail("a check threw an exception: " + textOfCurrentException());
    }
}

bool Scheduler::canGoOn(const SimulatedThread& thread) {
    try {
        return !thread.ended &&
               (!thread.begun || !thread.next->ready || thread.next->ready(thread.next->argument));
    } catch (...) {
        fail("a predicate threw an exception: " + textOfCurrentException());
    }
}

/// Threads beyond the width of the mask are never waited for.
std::uint64_t Scheduler::bitOf(const SimulatedThread& thread) {
    return thread.number < 64 ? std::uint64_t{1} << thread.number : 0;
}

std::uint64_t Scheduler::readyOthers(const SimulatedThread& self) {
    std::uint64_t ready = 0;
    for (const auto& thread : m_threads)
        if (thread.get() != &self && canGoOn(*thread))
            ready |= bitOf(*thread);
    return ready;
}

SimulatedThread* Scheduler::chooseNext() {
    std::vector<int>& candidates = m_candidates;
    candidates.clear();
    std::uint64_t ready = 0;
    for (const auto& thread : m_threads)
        if (canGoOn(*thread)) {
            candidates.push_back(thread->number);
            ready |= bitOf(*thread);
        }
    // Who has given way comes after those that were ready then, unless all have.
    const auto gaveWay = [&](int number) {
        return (m_threads[std::size_t(number)]->after & ready) != 0;
    };
    if (!std::all_of(candidates.begin(), candidates.end(), gaveWay))
        std::erase_if(candidates, gaveWay);
    const std::size_t readyOnes = candidates.size();
    const bool goesOn =
        std::find(candidates.begin(), candidates.end(), m_running->number) != candidates.end() &&
        !m_running->next->givesWay;
    addSleepers(candidates);
    if (candidates.empty())
        return nullptr;
    const int current = goesOn ? m_running->number : -1;
    return m_threads[std::size_t(choose(candidates, readyOnes, true, current))].get();
}

/// Of those that wait for a time only the earliest may go on: deadlines are met in their order, but
/// a thread that is ready may still be slower than the clock.
void Scheduler::addSleepers(std::vector<int>& candidates) {
    const auto sleeps = [this](const SimulatedThread& thread) {
        return !thread.ended && thread.begun && thread.next->deadline && !canGoOn(thread);
    };
    std::optional<Duration> earliest;
    for (const auto& thread : m_threads)
        if (sleeps(*thread))
            earliest = std::min(earliest.value_or(Duration::max()), *thread->next->deadline);
    for (const auto& thread : m_threads)
        if (earliest && sleeps(*thread) && thread->next->deadline == earliest)
            candidates.push_back(thread->number);
}

int Scheduler::choose(const std::vector<int>& candidates, std::size_t ready, bool threads,
                      int current) {
    if (candidates.size() == 1)
        return candidates.front();
    const std::uint64_t moment =
        mix(history(), current < 0 ? 10 : m_threads[std::size_t(current)]->history);
    const int choice =
        m_strategy.choose({candidates, ready, threads, m_running->number, current, moment});
    m_choices.push_back(choice);
    return choice;
}

/// Returns when somebody has gone back to the calling thread.
void Scheduler::goTo(SimulatedThread& next) {
    if (&next == m_running)
        return;
    SimulatedThread& self = *m_running;
    m_running = &next;
    next.begun = true;
    self.fiber.switchTo(next.fiber);
}

void Scheduler::record(const void* object, Access access) {
    std::uint64_t& history = m_running->history;
    history = mix(history, 1);
    if (!object)
        return;
    // A read changes nothing for others: that it came before a later write is known from the
    // reader.
    std::uint64_t& written = m_written[object];
    history = mix(history, written);
    if (access == Access::write)
        written = history;
}

void Scheduler::touch(const void* object) {
    const Inside inside(this);
    record(object, Access::write);
}

std::uint64_t Scheduler::history() const {
    std::uint64_t sum = mix(static_cast<std::uint64_t>(m_now.count()), 3);
    for (const auto& thread : m_threads)
        sum += mix(mix(thread->history, thread->ended ? 4 : thread->begun ? 5 : 6), thread->after);
    return sum;
}

int Scheduler::pick(int alternatives) {
    if (alternatives < 2)
        return 0;
    const Inside inside(this);
    std::vector<int> candidates;
    for (int i = 0; i < alternatives; ++i)
        candidates.push_back(i);
    const int picked = choose(candidates, candidates.size(), false, -1);
    m_running->history = mix(m_running->history, static_cast<std::uint64_t>(picked) + 7);
    return picked;
}

Duration Scheduler::now() {
    if (active) // not in a predicate or a check
        m_running->history = mix(m_running->history, static_cast<std::uint64_t>(m_now.count()));
    return m_now;
}

void Scheduler::touchEverything() {
    const Inside inside(this);
    m_running->history = mix(m_running->history, history());
}

// ---- Objects ---------------------------------------------------------------------------------

void Scheduler::destroyed(const void* object) {
    requireAlive(object, "destruction");
    for (const auto& thread : m_threads)
        if (thread.get() != m_running && thread->begun && !thread->ended &&
            thread->next->object == object)
            fail("an object is destroyed while thread " + std::to_string(thread->number) + " (" +
                 thread->name + ") stands before " + thread->next->what);
    m_lifetimes.died(object);
}

void Scheduler::requireAlive(const void* object, const char* what) {
    if (const char* const kind = m_lifetimes.dead(object))
        fail(std::string(what) + " of a " + kind + " that has been destroyed");
}

// ---- Threads ---------------------------------------------------------------------------------

SimulatedThread* Scheduler::thread(int number) {
    return number >= 0 && std::size_t(number) < m_threads.size()
               ? m_threads[std::size_t(number)].get()
               : nullptr;
}

SimulatedThread& Scheduler::spawn(std::string name, std::function<void()> body) {
    const Inside inside(active);
    const int number = static_cast<int>(m_threads.size());
    m_threads.push_back(std::make_unique<SimulatedThread>(
        number, std::move(name), [this, body = std::move(body)]() noexcept {
            Inside::activate(this);
            try {
                body();
            } catch (abi::__forced_unwind&) {
                m_running->unwound = true; // here, in the last frame, nobody is left
            } catch (...) {
                fail("a thread threw an exception: " + textOfCurrentException());
            }
            endThread();
        }));
    SimulatedThread& thread = *m_threads.back();
    if (m_running) {
        thread.history = mix(m_running->history, 8);
        m_running->history = mix(m_running->history, 9);
    }
    return thread;
}

void Scheduler::endThread() {
    Inside::activate(nullptr);
    m_running->ended = true;
    callCheck();
    if (SimulatedThread* const next = chooseNext())
        goTo(*next); // for good
    if (std::any_of(m_threads.begin(), m_threads.end(), [](auto& t) { return !t->ended; }))
        fail("deadlock: no thread can go on");
    leave();
}

void Scheduler::leave() {
    Inside::activate(nullptr);
    m_running->fiber.switchTo(m_outside);
    std::terminate(); // nobody switches back
}

// ---- Failures --------------------------------------------------------------------------------

void Scheduler::fail(std::string what) {
    Inside::activate(nullptr);
    m_failure =
        RunFailure{std::move(what), ""}; // nothing of it stays on a stack that is left for good
    if (const Step* const step = m_running->next)
        m_running->position = std::string(" before: ") + step->what + "\n" + stackText();
    else
        m_running->position = " failed here:\n" + stackText();
    collectPositions();
    leave();
}

/// Switches to each thread once; it tells where it stands, and switches back (see `perform`).
void Scheduler::collectPositions() {
    m_reporter = m_running;
    for (const auto& thread : m_threads) {
        if (thread->ended)
            continue;
        if (!thread->begun)
            thread->position = " has not begun\n";
        else if (thread.get() != m_reporter)
            m_reporter->fiber.switchTo(thread->fiber);
        m_failure->positions += "thread " + std::to_string(thread->number) + " (" + thread->name +
                                ")" + thread->position;
    }
}

} // namespace mirel::simulated
