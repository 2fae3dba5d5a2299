// The semaphore of runtime/ in every order of its steps: its source, with the system's
// futex played by the simulation, under another name beside the simulation's own semaphore.

#include "framework/MirelException.h"
#include "framework/Threadable.h"
#include "runtime/threads/Futex.h"
#include "runtime/threads/ThreadOptions.h"
#include "simulated/Exploration.h"
#include "simulated/Simulation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <linux/futex.h>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#define Semaphore RuntimeSemaphore
#define CriticalSection RuntimeCriticalSection
#include "runtime/threads/CriticalSection.cpp"
#include "runtime/threads/PendingWakeUps.cpp"
#include "runtime/threads/Semaphore.cpp"
#include "runtime/threads/Units.cpp"
#undef CriticalSection
#undef Semaphore

namespace {

using namespace mirel::simulated;

struct Sleeper {
    const void* address;
    std::uint32_t thread;
    bool woken = false;
};

// Of the run.
std::vector<Sleeper*> sleepers;
std::map<unsigned long, mirel::PendingWakeUps> pendingOfThreads;
int realTimePriority = 0;
int sleptForAUnit = 0;

/// False when the time was over first.
bool sleepOn(const void* address, const mirel::Deadline& deadline) {
    Sleeper self{address, mirel::futexThread()};
    sleepers.push_back(&self);
    const bool woken =
        waitUntil([&self] { return self.woken; }, "futex sleep",
                  deadline ? std::optional(std::chrono::milliseconds(1)) : std::nullopt);
    std::erase(sleepers, &self);
    return woken;
}

/// One of those who sleep there, not woken any more; null if there is none.
Sleeper* pickSleeper(const void* address) {
    std::vector<Sleeper*> here;
    std::copy_if(sleepers.begin(), sleepers.end(), std::back_inserter(here),
                 [&](const Sleeper* s) { return s->address == address && !s->woken; });
    if (here.empty())
        return nullptr;
    Sleeper* const picked = here[static_cast<std::size_t>(pick(static_cast<int>(here.size())))];
    picked->woken = true;
    return picked;
}

/// The word as the kernel sees it, to which several accesses are one step.
std::uint32_t& valueOf(mirel::FutexWord& word) { return reinterpret_cast<std::uint32_t&>(word); }

} // namespace

namespace mirel {

// What the kernel does: compares and goes to sleep in one step.

bool futexWait(FutexWord& word, std::uint32_t value, const Deadline& deadline) {
    point(&word, "futex wait");
    if (valueOf(word) != value)
        return true;
    ++sleptForAUnit;
    return sleepOn(&word, deadline);
}

void futexWake(const void* address) {
    point(&sleepers, "futex wake");
    pickSleeper(address);
}

bool futexOwn(FutexWord& word, const Deadline& deadline) {
    point(&word, "futex own");
    if (valueOf(word) == 0) {
        valueOf(word) = futexThread();
        return true;
    }
    valueOf(word) |= FUTEX_WAITERS;
    return sleepOn(&word, deadline);
}

void futexDisown(FutexWord& word) {
    point(&word, "futex disown");
    require((valueOf(word) & FUTEX_TID_MASK) == futexThread(), "disowned by who is not the owner");
    const Sleeper* const next = pickSleeper(&word);
    valueOf(word) = next ? next->thread | FUTEX_WAITERS : 0;
}

std::uint32_t futexThread() { return static_cast<std::uint32_t>(Threadable::currentThreadId()); }
bool futexHasOwners() { return true; }

ThreadOptions threadOptions() { return {.realTimePriority = realTimePriority}; }
int mostLockSpins() { return 1; }

PendingWakeUps& PendingWakeUps::ofThisThread() {
    return pendingOfThreads[Threadable::currentThreadId()];
}

} // namespace mirel

namespace {

/// Without real-time priorities, and with them.
void expectAllSchedulesToPass(const std::function<void()>& body, unsigned preemptions = 3) {
    for (realTimePriority = 0; realTimePriority < 2; ++realTimePriority) {
        const Exploration result = explore({.preemptions = preemptions}, [&body] {
            sleepers.clear();
            pendingOfThreads.clear();
            sleptForAUnit = 0;
            body();
        });
        EXPECT_TRUE(result && result.covered == static_cast<int>(preemptions))
            << "real-time priority " << realTimePriority << ": " << result;
        std::cout << result << std::endl;
    }
}

/// Holds a lock while it calls the function.
using Way = void (*)(RuntimeSemaphore&, const std::function<void()>&);

void useALock(const std::vector<Way>& ways) {
    RuntimeSemaphore lock(1, 1, false);
    int inside = 0;
    int done = 0;
    for (const Way way : ways)
        spawn("user", [&, way] {
            way(lock, [&] {
                require(++inside == 1, "two inside");
                point(&inside);
                --inside;
            });
            ++done;
        });
    waitUntil([&] { return done == static_cast<int>(ways.size()); });
}

void bySection(RuntimeSemaphore& lock, const std::function<void()>& use) {
    const RuntimeCriticalSection section(lock);
    use();
}

void byHand(RuntimeSemaphore& lock, const std::function<void()>& use) {
    lock.take(-1);
    use();
    lock.give();
}

void impatiently(RuntimeSemaphore& lock, const std::function<void()>& use) {
    if (lock.take(5)) {
        use();
        lock.give();
    }
}

TEST(SemaphoreSteps, IsALock) {
    expectAllSchedulesToPass([] { useALock({byHand, byHand, byHand}); });
    expectAllSchedulesToPass([] { useALock({bySection, byHand, impatiently}); }, 2);
}

TEST(SemaphoreSteps, WhoWaitsForASectionWaitsForItsOwner) {
    expectAllSchedulesToPass([] {
        useALock({bySection, bySection, bySection});
        require(realTimePriority == 0 || sleptForAUnit == 0, "nobody's priority was raised");
    });
}

TEST(SemaphoreSteps, IsTakenBySomebodyIfItIsGivenByAnother) {
    for (const int timeout : {0, 5})
        expectAllSchedulesToPass([timeout] {
            RuntimeSemaphore lock(1, 1, false);
            lock.take(-1);
            int taken = 0;
            int done = 0;
            spawn("impatient", [&] {
                taken += lock.take(timeout);
                ++done;
            });
            spawn("giver", [&] {
                lock.give();
                taken += lock.take(0);
                ++done;
            });
            waitUntil([&] { return done == 2; });
            require(taken == 1, "the unit was refused to both, or given to both");
        });
}

TEST(SemaphoreSteps, LosesNoUnitAtATimeout) {
    expectAllSchedulesToPass([] {
        RuntimeSemaphore unit(0, 1, false);
        int done = 0;
        spawn("impatient", [&] {
            if (unit.take(5))
                unit.give();
            ++done;
        });
        spawn("patient", [&] {
            unit.take(-1); // for ever, if the other one's wake-up took the unit with it
            ++done;
        });
        unit.give();
        waitUntil([&] { return done == 2; });
        require(!unit.take(0), "one unit, taken twice");
    });
}

TEST(SemaphoreSteps, WakesAsManyAsItHasUnitsFor) {
    expectAllSchedulesToPass([] {
        RuntimeSemaphore units(0, 2, false);
        int done = 0;
        for (int i = 0; i < 2; ++i)
            spawn("taker", [&] {
                units.take(-1); // for ever, if a wake-up is left out: a deadlock
                ++done;
            });
        units.give();
        units.give();
        waitUntil([&] { return done == 2; });
    });
}

TEST(SemaphoreSteps, MayBeDestroyedAsSoonAsItHasBeenTaken) {
    expectAllSchedulesToPass([] {
        auto* const units = new RuntimeSemaphore(0, 1, false);
        bool given = false;
        spawn("giver", [&] {
            units->give(); // must not touch it after the unit is there
            given = true;
        });
        units->take(-1);
        delete units;
        waitUntil([&] { return given; });
    });
}

TEST(SemaphoreSteps, MayBeDestroyedAsSoonAsItsLastSectionIsOver) {
    for (const Way way : {bySection, byHand})
        expectAllSchedulesToPass([way] {
            auto* const lock = new RuntimeSemaphore(1, 1, false);
            bool inside = false;
            bool done = false;
            spawn("last", [&] {
                bySection(*lock, [&] { inside = true; });
                done = true;
            });
            waitUntil([&] { return inside; });
            way(*lock, [] {});
            delete lock;
            waitUntil([&] { return done; });
        });
}

TEST(SemaphoreSteps, WakesWhoItOwesThatWhenTheLockIsReleased) {
    expectAllSchedulesToPass([] {
        RuntimeSemaphore outer(1, 1, false);
        RuntimeSemaphore inner(1, 1, false);
        RuntimeSemaphore work(0, 1, false);
        int done = 0;
        spawn("worker", [&] {
            work.take(-1);
            bySection(outer, [] {});
            ++done; // not before it has left the lock, which may be gone then
        });
        spawn("visitor", [&] {
            bySection(inner, [] {});
            ++done;
        });
        {
            const RuntimeCriticalSection lock(outer);
            {
                const RuntimeCriticalSection innerLock(inner);
                work.give();
            }
            point(&inner); // the visitor may still sleep beside a free lock
        }
        waitUntil([&] { return done == 2; }); // for ever, if somebody has been forgotten
    });
}

TEST(SemaphoreSteps, WakesWhoItOwesThatBeforeItSleeps) {
    expectAllSchedulesToPass([] {
        RuntimeSemaphore lock(1, 1, false);
        RuntimeSemaphore question(0, 1, false);
        RuntimeSemaphore answer(0, 1, false);
        int done = 0;
        for (int i = 0; i < 2; ++i)
            spawn("answering", [&] {
                question.take(-1);
                ++done;
                answer.give();
            });
        const RuntimeCriticalSection held(lock);
        question.give();
        answer.take(-1); // for ever, if the other one is not woken before the lock is released
        const mirel::WakeUpsAtOnce wakeUpsAtOnce;
        question.give();
        waitUntil([&] { return done == 2; }); // as well, in a way that the framework does not know
        answer.take(-1);
    });
}

TEST(SemaphoreSteps, WakesMoreThanItHasRoomToRemember) {
    constexpr int kTakers = 5;
    const auto body = [] {
        std::vector<std::unique_ptr<RuntimeSemaphore>> units;
        RuntimeSemaphore lock(1, 1, false);
        int done = 0;
        for (int i = 0; i < kTakers; ++i) {
            units.push_back(std::make_unique<RuntimeSemaphore>(0, 1, false));
            spawn("taker", [&done, unit = units.back().get()] {
                unit->take(-1);
                ++done;
            });
        }
        {
            const RuntimeCriticalSection held(lock);
            for (const auto& unit : units)
                unit->give(); // all takers sleep, if one preemption lets them
        }
        waitUntil([&] { return done == kTakers; });
    };
    expectAllSchedulesToPass(body, 1);
}

} // namespace
