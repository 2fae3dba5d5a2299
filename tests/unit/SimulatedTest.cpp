// The simulated framework: it must find every fault and run no order twice. Time, locks and the end
// of a thread must be as code for real threads expects them.

#include "framework/MirelException.h"
#include "framework/Semaphore.h"
#include "framework/Threadable.h"
#include "framework/Threader.h"
#include "simulated/Exploration.h"
#include "simulated/Simulation.h"
#include "simulated/Strategy.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace mirel::simulated;
using namespace std::chrono_literals;

class Body : public Threadable {
public:
    explicit Body(std::function<void()> body) : m_body(std::move(body)) {}
    void run() override { m_body(); }
    MirelThreadPriority getThreadPriorityForPlatform() override { return ePriorityNormal; }

private:
    const std::function<void()> m_body;
};

void start(Threadable& body) {
    Threader threader;
    unsigned long id = 0;
    threader.createThread(id, &body, "worker", 1, 0);
}

/// Two threads append their letter twice.
void writeLetters(std::string& text) {
    for (const char letter : {'A', 'B'})
        spawn(std::string(1, letter), [&text, letter] {
            for (int i = 0; i < 2; ++i) {
                point(&text);
                text += letter;
            }
        });
    waitUntil([&] { return text.size() == 4; });
}

TEST(Exploration, ExhaustiveSearchRunsEveryOrderWithinItsBound) {
    const std::set<std::string> byBound[] = {
        {"AABB", "BBAA"},
        {"AABB", "BBAA", "ABBA", "BAAB"},
        {"AABB", "BBAA", "ABBA", "BAAB", "ABAB", "BABA"},
    };
    for (unsigned bound = 0; bound < 3; ++bound) {
        std::set<std::string> seen;
        const Exploration result = explore({.preemptions = bound}, [&seen] {
            std::string text;
            writeLetters(text);
            seen.insert(text);
        });
        EXPECT_TRUE(result) << result;
        EXPECT_EQ(static_cast<int>(bound), result.covered);
        EXPECT_EQ(byBound[bound], seen) << "at most " << bound << " preemptions";
    }
}

TEST(Exploration, OrdersThatMakeNoDifferenceAreRunOnce) {
    const auto countRuns = [](bool shared) {
        int objects[2];
        return explore({.preemptions = 5},
                       [&] {
                           for (int thread = 0; thread < 2; ++thread)
                               spawn("t", [&, thread] {
                                   for (int i = 0; i < 8; ++i)
                                       point(&objects[shared ? 0 : thread]);
                               });
                       })
            .runs;
    };
    EXPECT_LT(3 * countRuns(false), countRuns(true));
}

/// What code compiled with -fsanitize=thread calls.
extern "C" std::uint32_t __tsan_atomic32_load(const volatile std::uint32_t*, int);
extern "C" void __tsan_atomic32_store(volatile std::uint32_t*, std::uint32_t, int);

/// Two threads with three actions each, drawn from a seed; what they leave behind depends on their
/// order.
std::string mixUp(unsigned seed) {
    std::mt19937 random(seed);
    std::uint32_t values[2] = {1, 2};
    Semaphore lock(1, 1, false);
    std::mutex mutex;
    std::condition_variable changed;
    int done = 0;
    for (std::uint32_t thread = 1; thread <= 2; ++thread) {
        const auto actions = static_cast<unsigned>(random());
        spawn("mixer", [&, thread, actions] {
            for (const unsigned shift : {0U, 4U, 8U}) {
                const unsigned action = actions >> shift & 7U;
                std::uint32_t& one = values[actions >> (shift + 3) & 1U];
                std::uint32_t& other = values[1 - (actions >> (shift + 3) & 1U)];
                if (action == 0) {
                    point(&one);
                    one = one * 2 + thread;
                } else if (action == 1) {
                    const std::uint32_t seen = __tsan_atomic32_load(&other, 0);
                    __tsan_atomic32_store(&one, seen * 3 + thread, 0);
                } else if (action == 2) {
                    lock.take(-1);
                    const std::uint32_t seen = __tsan_atomic32_load(&one, 0);
                    __tsan_atomic32_store(&other, seen + 5, 0);
                    lock.give();
                } else if (action == 3) {
                    if (!lock.take(static_cast<int>(thread)))
                        continue;
                    point(&other);
                    other += thread;
                    lock.give();
                } else if (action == 4) {
                    sched_yield();
                    point(&one);
                    one = one * 7 + thread;
                } else if (action == 5) {
                    sleepFor(std::chrono::milliseconds(thread));
                    const auto time = static_cast<std::uint32_t>(now() / 1ms);
                    point(&one);
                    one = one * 5 + time;
                } else if (action == 6) {
                    changed.notify_one();
                } else {
                    std::unique_lock held(mutex);
                    const bool woken = changed.wait_for(held, 2ms) == std::cv_status::no_timeout;
                    point(&other);
                    other = other * 11 + (woken ? 1 : 0);
                }
            }
            ++done;
        });
    }
    waitUntil([&] { return done == 2; });
    return std::to_string(values[0]) + " " + std::to_string(values[1]);
}

TEST(Exploration, WhatIsRunOnceStandsForAllThatRandomRunsFind) {
#ifdef __SANITIZE_ADDRESS__
    constexpr unsigned kPrograms = 2; // AddressSanitizer is slow with fibers
#else
    constexpr unsigned kPrograms = 40;
#endif
    std::size_t outcomes = 0;
    for (unsigned seed = 0; seed < kPrograms; ++seed) {
        std::set<std::string> all;
        const Exploration exhaustive =
            explore({.preemptions = 9}, [&] { all.insert(mixUp(seed)); });
        ASSERT_TRUE(exhaustive && exhaustive.complete) << exhaustive;
        std::set<std::string> found;
        explore({.search = Search::random, .runs = 500, .seed = seed},
                [&] { found.insert(mixUp(seed)); });
        EXPECT_TRUE(std::includes(all.begin(), all.end(), found.begin(), found.end())) << seed;
        outcomes += all.size();
    }
    EXPECT_LT(5 * kPrograms, outcomes) << "too few orders made a difference";
}

/// A counter that two threads read and write in separate steps.
void countCarelessly() {
    int count = 0;
    int ended = 0;
    for (int i = 0; i < 2; ++i)
        spawn("counter", [&] {
            point(&count, "read");
            const int seen = count;
            point(&count, "write");
            count = seen + 1;
            ++ended;
        });
    waitUntil([&] { return ended == 2; });
    require(count == 2, "counted " + std::to_string(count));
}

TEST(Exploration, EverySearchFindsTheFaultAndItsScheduleRepeatsIt) {
    for (const ExploreOptions& options : {
             ExploreOptions{.search = Search::exhaustive, .preemptions = 1},
             ExploreOptions{.search = Search::random, .runs = 1000, .seed = 5},
             ExploreOptions{.search = Search::pct, .preemptions = 1, .runs = 1000, .seed = 5},
         }) {
        const Exploration found = explore(options, &countCarelessly);
        ASSERT_TRUE(found.failure) << found;
        EXPECT_EQ("counted 1", found.failure->what);
        const Exploration same = explore(options, &countCarelessly);
        EXPECT_EQ(found.runs, same.runs) << "a search with the same seed is the same search";
        for (int i = 0; i < 100; ++i) {
            const Exploration again =
                explore({.schedule = found.failure->schedule}, &countCarelessly);
            ASSERT_TRUE(again.failure);
            EXPECT_EQ(found.failure->schedule, again.failure->schedule);
            EXPECT_EQ(found.failure->positions, again.failure->positions);
        }
    }
    EXPECT_TRUE(explore({.preemptions = 0}, &countCarelessly)) << "it takes one preemption";
}

TEST(Exploration, WhatCannotBeSearchedIsRefused) {
    EXPECT_THROW(explore({.search = Search::random}, [] {}), std::invalid_argument);
    for (const char* text : {"1.x", "1x0", "a", "1x2x3", "-1", "1 2"})
        EXPECT_THROW(explore({.schedule = text}, [] {}), std::invalid_argument) << text;
    EXPECT_EQ("1x3.0.2", scheduleText({1, 1, 1, 0, 2}));
    EXPECT_THROW(point(nullptr), MirelException) << "outside of a run";
}

/// A run that fails, and what the failure must say.
struct Failing {
    const char* name;
    std::function<void()> body;
    std::vector<std::string> told; ///< parts of the text, in this order
};

void lockInOrder(Semaphore& one, Semaphore& other, int& done) {
    one.take(-1);
    other.take(-1);
    other.give();
    one.give();
    ++done;
}

std::unique_ptr<Semaphore> leftBehind;

const std::vector<Failing>& failingRuns() {
    static const std::vector<Failing> runs{
        {"DeadlockWithPositions",
         [] {
             Semaphore a(1, 1, false);
             Semaphore b(1, 1, false);
             int done = 0;
             spawn("ab", [&] { lockInOrder(a, b, done); });
             spawn("ba", [&] { lockInOrder(b, a, done); });
             waitUntil([&] { return done == 2; }, "both");
         },
         {"deadlock", "thread 0 (main) before: both", "thread 1 (ab) before: Semaphore::take",
          "thread 2 (ba) before: Semaphore::take"}},
        {"NoProgress",
         [] {
             for (;;)
                 sched_yield();
         },
         {"no progress", "20000 steps", "(main)"}},
        {"ExceptionOutOfAThread",
         [] { spawn("thrower", [] { throw std::runtime_error("no luck"); }); },
         {"exception", "no luck", "(thrower)"}},
        {"CheckAtEachStep",
         [] {
             int value = 0;
             checkAtEachStep([&] { require(value < 2, "too large"); });
             for (; value < 3; ++value)
                 point(&value);
         },
         {"too large"}},
        {"SemaphoreGivenAfterItsEnd",
         [] {
             auto semaphore = std::make_unique<Semaphore>(0, 1, false);
             spawn("giver", [raw = semaphore.get()] { raw->give(); });
             semaphore.reset();
         },
         {"Semaphore"}},
        {"SemaphoreDestroyedUnderAWaiter",
         [] {
             auto semaphore = std::make_unique<Semaphore>(0, 1, false);
             bool waits = false;
             spawn("taker", [&waits, raw = semaphore.get()] {
                 waits = true;
                 raw->take(-1);
             });
             waitUntil([&] { return waits; });
             semaphore.reset();
         },
         {"stands before Semaphore::take"}},
        {"ThreadObjectUsedAfterItsEnd",
         [] {
             auto body = std::make_unique<Body>([] {});
             Threadable* volatile raw = body.get(); // hidden from the compiler's warning
             body.reset();
             (void)raw->threadId();
         },
         {"threadId of a Threadable that has been destroyed"}},
        {"ObjectLeftBehind",
         [] { leftBehind = std::make_unique<Semaphore>(0, 1, false); },
         {"never destroyed: 1 Semaphore"}},
        {"ThreadNotWaitedFor",
         [] {
             bool ran = false;
             Body body([&] { ran = true; });
             start(body);
             waitUntil([&] { return ran; });
         },
         {"(worker) was neither waited for nor detached"}},
        {"ThreadBegunAfterItsObjectsEnd",
         [] {
             Body body([] {});
             start(body);
         },
         {"Threadable::run of a Threadable that has been destroyed"}},
        {"WakeUpBetweenALookAndTheWait",
         [] {
             std::mutex mutex;
             std::condition_variable changed;
             Semaphore woken(0, 1, false);
             bool ready = false;
             bool looked = false;
             int done = 0;
             spawn("waiter", [&] {
                 std::unique_lock lock(mutex);
                 point(&ready);
                 const bool seen = ready;
                 point(&looked);
                 looked = true;
                 if (!seen)
                     changed.wait(lock);
                 ++done;
             });
             spawn("waker", [&] {
                 point(&ready);
                 ready = true;
                 changed.notify_one();
                 woken.give();
                 ++done;
             });
             spawn("rescuer", [&] { // hides the fault in the runs in which it wakes the waiter
                 woken.take(-1);
                 waitUntil([&] { return looked; });
                 { const std::lock_guard lock(mutex); }
                 if (pick(2) == 0)
                     changed.notify_one();
                 ++done;
             });
             waitUntil([&] { return done == 3; });
         },
         {"deadlock", "(waiter) before: wait for a condition"}},
        {"TimeThatPassesBetweenTwoLooks",
         [] {
             int object = 0;
             int done = 0;
             spawn("sleeper", [&] {
                 sleepFor(1h);
                 ++done;
             });
             spawn("reader", [&] {
                 point(&object);
                 const auto first = now();
                 point(&object);
                 if (pick(2) == 1)
                     require(!(first == 0h && now() == 1h), "an hour has passed");
                 ++done;
             });
             waitUntil([&] { return done == 2; });
         },
         {"an hour has passed"}},
        {"GuardedDataUsedAfterTheLock",
         [] {
             Semaphore lock(1, 1, false);
             int inside = 0;
             int done = 0;
             for (int i = 0; i < 2; ++i)
                 spawn("user", [&] {
                     lock.take(-1);
                     require(++inside == 1, "two inside");
                     lock.give();
                     --inside;
                     ++done;
                 });
             waitUntil([&] { return done == 2; });
         },
         {"two inside"}},
        {"UnlockOfAnUnlockedMutex",
         [] {
             std::mutex mutex;
             mutex.unlock();
         },
         {"unlock of a mutex"}},
        {"EndOfAThreadStopped",
         [] {
             spawn("stubborn", [] {
                 try {
                     pthread_exit(nullptr);
                 } catch (...) {
                 }
             });
         },
         {"stopped the end of a thread"}},
        {"RunThatDoesNotRepeat",
         [] {
             static int former = 0;
             int object = 0;
             for (int i = 0; i < 2 + former; ++i)
                 spawn("more each time", [&object] { point(&object); });
             ++former;
         },
         {"did not repeat"}},
        {"DetachedTwice",
         [] {
             Body body([] {});
             start(body);
             pthread_detach(body.threadId());
             pthread_detach(body.threadId());
         },
         {"pthread_detach"}},
    };
    return runs;
}

class FailingRun : public testing::TestWithParam<std::size_t> {};

TEST_P(FailingRun, SaysWhatAndWhere) {
    const Failing& failing = failingRuns()[GetParam()];
#ifdef __SANITIZE_ADDRESS__
    if (std::string(failing.name).ends_with("AfterItsEnd"))
        GTEST_SKIP() << "AddressSanitizer reports it first";
#endif
    const Exploration result = explore({}, failing.body);
    leftBehind.reset();
    ASSERT_TRUE(result.failure) << result;
    const std::string text = result.text();
    std::size_t place = 0;
    for (const std::string& part : failing.told) {
        place = text.find(part, place);
        EXPECT_NE(std::string::npos, place) << part << " in order, in:\n" << text;
    }
}

INSTANTIATE_TEST_SUITE_P(Simulated, FailingRun,
                         testing::Range(std::size_t{0}, failingRuns().size()),
                         [](const auto& row) { return failingRuns()[row.param].name; });

TEST(Simulation, TimeIsVirtualAndPassesInItsOrder) {
    const auto real = std::chrono::steady_clock::now();
    std::set<std::string> orders;
    const Exploration result = explore({}, [&orders] {
        std::string order;
        const auto begin = std::chrono::steady_clock::now();
        spawn("day", [&] {
            std::this_thread::sleep_for(24h);
            order += "d";
        });
        spawn("hour", [&] {
            sleepFor(1h);
            order += "h";
        });
        Semaphore semaphore(0, 1, false);
        require(!semaphore.take(7'200'000), "nobody gives");
        point(&order);
        order += "2";
        waitUntil([&] { return order.size() == 3; });
        require(std::chrono::steady_clock::now() - begin >= 24h && now() >= 24h, "time");
        orders.insert(order);
    });
    EXPECT_TRUE(result) << result;
    // A thread that is due earlier may run later, but both orders must occur.
    EXPECT_TRUE(orders.contains("h2d"));
    EXPECT_TRUE(orders.contains("2hd"));
    EXPECT_LT(std::chrono::steady_clock::now() - real, 20s);
}

TEST(Simulation, StandardLocksWorkAndAreSteps) {
    bool contended = false;
    const Exploration result = explore({}, [&contended] {
        std::mutex mutex;
        std::recursive_mutex again;
        std::condition_variable changed;
        int inside = 0;
        int value = 0;
        for (int i = 0; i < 2; ++i)
            spawn("adder", [&] {
                const bool free = mutex.try_lock();
                contended = contended || !free;
                if (free)
                    mutex.unlock();
                std::lock_guard outer(again);
                std::lock_guard inner(again);
                std::lock_guard lock(mutex);
                require(++inside == 1, "one at a time");
                point(&value);
                --inside;
                ++value;
                changed.notify_one();
            });
        std::unique_lock lock(mutex);
        require(!changed.wait_for(lock, 0s, [] { return false; }), "nothing to wait for");
        changed.wait(lock, [&] { return value == 2; });
    });
    EXPECT_TRUE(result) << result;
    EXPECT_TRUE(contended);
}

/// These runs look endless or deadlocked, and are not.
TEST(Simulation, WhoPollsOrTriesIsNotStuck) {
    for (const Search search : {Search::exhaustive, Search::random, Search::pct}) {
        const Exploration result = explore({.search = search, .preemptions = 1, .runs = 300}, [] {
            std::mutex a;
            std::mutex b;
            int done = 0;
            int ended = 0;
            for (int i = 0; i < 2; ++i)
                spawn("spinner", [&] {
                    while (done == 0)
                        sched_yield();
                    ++ended;
                });
            spawn("poller", [&] {
                while (done < 2)
                    std::this_thread::sleep_for(1ms);
                ++ended;
            });
            spawn("locker", [&] {
                std::scoped_lock both(b, a); // tries, and steps back
                ++done;
                ++ended;
            });
            {
                std::lock_guard outer(a);
                if (b.try_lock())
                    b.unlock();
            }
            point(&done);
            ++done;
            waitUntil([&] { return ended == 4; });
        });
        EXPECT_TRUE(result) << result;
    }
}

TEST(Simulation, ThreadsHandleTheirOwnExceptionsAndCanEndThemselves) {
    const Exploration result = explore({}, [] {
        int ended = 0;
        for (int i = 0; i < 2; ++i)
            spawn("thrower", [&ended, i] {
                try {
                    try {
                        throw i;
                    } catch (int) {
                        point(&ended);
                        throw; // the one that this thread handles
                    }
                } catch (int caught) {
                    require(caught == i, "another thread's exception");
                }
                ++ended;
            });
        bool unwound = false;
        Body exiting([&] {
            const std::shared_ptr<void> atEnd(nullptr, [&](void*) { unwound = true; });
            pthread_exit(nullptr);
        });
        start(exiting);
        exiting.waitForThreadCompletion();
        require(unwound, "pthread_exit runs destructors");
        waitUntil([&] { return ended == 2; });
    });
    EXPECT_TRUE(result) << result;
}

TEST(Simulation, PicksAreExploredLikeOrders) {
    std::set<int> seen;
    const Exploration result =
        explore({.preemptions = 0}, [&] { seen.insert(pick(3) * 10 + pick(2)); });
    EXPECT_TRUE(result) << result;
    EXPECT_EQ((std::set<int>{0, 1, 10, 11, 20, 21}), seen);
}

} // namespace
