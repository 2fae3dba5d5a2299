// The semaphore of runtime/ in every order of its steps: its source, with the system's
// futex played by the simulation, under another name beside the simulation's own semaphore.

#include "framework/MirelException.h"
#include "framework/Threadable.h"
#include "simulated/Exploration.h"
#include "simulated/Simulation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <linux/futex.h>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace mirel::simulated;

struct Sleeper {
    const void* address;
    bool woken = false;
};

std::vector<Sleeper*> sleepers; ///< of the run

/// What the kernel does: compares and goes to sleep in one step; may also wake without a reason.
int futexWait(std::atomic<std::uint32_t>& word, std::uint32_t value, bool timed) {
    point(&word, "futex wait");
    if (word.load(std::memory_order_relaxed) != value) {
        errno = EAGAIN;
        return -1;
    }
    Sleeper self{&word};
    sleepers.push_back(&self);
    const bool woken =
        waitUntil([&self] { return self.woken; }, "futex sleep",
                  timed ? std::optional(std::chrono::milliseconds(1)) : std::nullopt);
    std::erase(sleepers, &self);
    errno = ETIMEDOUT;
    return woken ? 0 : -1;
}

/// Looks at the address only: what was there may be gone.
int futexWake(const void* address) {
    point(&sleepers, "futex wake");
    std::vector<Sleeper*> here;
    std::copy_if(sleepers.begin(), sleepers.end(), std::back_inserter(here),
                 [&](const Sleeper* s) { return s->address == address && !s->woken; });
    if (!here.empty())
        here[static_cast<std::size_t>(pick(static_cast<int>(here.size())))]->woken = true;
    return 0;
}

template <typename Time>
long futex(long, std::atomic<std::uint32_t>* word, int, std::uint32_t value, Time* deadline,
           std::nullptr_t, std::uint32_t) {
    return futexWait(*word, value, deadline != nullptr);
}
long futex(long, const void* address, int, int) { return futexWake(address); }

} // namespace

#define syscall futex
#define Semaphore RuntimeSemaphore
#define CriticalSection RuntimeCriticalSection
#include "runtime/threads/CriticalSection.cpp"
#include "runtime/threads/PendingWakeUps.cpp"
#include "runtime/threads/Semaphore.cpp"
#undef CriticalSection
#undef Semaphore
#undef syscall

namespace {

std::map<unsigned long, mirel::PendingWakeUps> pendingOfThreads; ///< of the run

} // namespace

namespace mirel {

PendingWakeUps& PendingWakeUps::ofThisThread() {
    return pendingOfThreads[Threadable::currentThreadId()];
}

int mostLockSpins() { return 1; }

} // namespace mirel

namespace {

void expectAllSchedulesToPass(const std::function<void()>& body, unsigned preemptions = 3) {
    const Exploration result = explore({.preemptions = preemptions}, [&body] {
        sleepers.clear();
        pendingOfThreads.clear();
        body();
    });
    EXPECT_TRUE(result && result.covered == static_cast<int>(preemptions)) << result;
    std::cout << result << std::endl;
}

TEST(SemaphoreSteps, IsALock) {
    expectAllSchedulesToPass([] {
        RuntimeSemaphore lock(1, 1, false);
        int inside = 0;
        int done = 0;
        for (int i = 0; i < 3; ++i)
            spawn("user", [&] {
                lock.take(-1);
                require(++inside == 1, "two inside");
                point(&inside);
                --inside;
                lock.give();
                ++done;
            });
        waitUntil([&] { return done == 3; });
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

TEST(SemaphoreSteps, WakesWhoItOwesThatWhenTheLockIsReleased) {
    expectAllSchedulesToPass([] {
        RuntimeSemaphore outer(1, 1, false);
        RuntimeSemaphore inner(1, 1, false);
        RuntimeSemaphore work(0, 1, false);
        int done = 0;
        spawn("worker", [&] {
            work.take(-1);
            const RuntimeCriticalSection lock(outer);
            ++done;
        });
        spawn("visitor", [&] {
            const RuntimeCriticalSection lock(inner);
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
