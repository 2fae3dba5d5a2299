#include "framework/CriticalSection.h"
#include "framework/Semaphore.h"
#include "framework/Threadable.h"
#include "framework/Threader.h"
#include "runtime/threads/ThreadOptions.h"
#include "runtime/threads/ThreadStartHook.h"
#include "tests/unit/Support.h"
#include "tests/unit/ThreadsSupport.h"

#include <csignal>
#include <cxxabi.h>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <linux/capability.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(Semaphore, KeepsAtMostTheMaximum) {
    Semaphore semaphore(1, 2, false);
    for (int i = 0; i < 5; ++i)
        semaphore.give();
    EXPECT_TRUE(semaphore.take(0));
    EXPECT_TRUE(semaphore.take(-1));
    EXPECT_FALSE(semaphore.take(0));
}

TEST(Semaphore, TakeWaitsForAsLongAsItMay) {
    Semaphore semaphore(Semaphore::NOT_AVAILABLE, 1, false);
    const auto start = Clock::now();
    EXPECT_FALSE(semaphore.take(30));
    EXPECT_GE(Clock::now() - start, 30ms);
}

TEST(Semaphore, LosesNoUnitAndNoWaiter) {
    // Some takers wait without a limit, others with timeouts that end while units are given.
    constexpr int kShare = 1000;
    Semaphore semaphore(0, 4 * kShare, false);
    std::vector<std::jthread> takers;
    for (const int timeout : {0, 1, -1, -1})
        takers.emplace_back([&, timeout] {
            for (int taken = 0; taken < kShare;)
                taken += semaphore.take(timeout);
        });
    for (int i = 0; i < 4 * kShare; ++i) {
        semaphore.give();
        std::this_thread::yield();
    }
    takers.clear();
    EXPECT_FALSE(semaphore.take(0));
}

TEST(Semaphore, MayBeDestroyedAsSoonAsItIsTaken) {
    constexpr int kRounds = 20000;
    std::atomic<Semaphore*> handedOver{nullptr};
    std::jthread giver([&] {
        for (int round = 0; round < kRounds; ++round) {
            handedOver.wait(nullptr);
            handedOver.exchange(nullptr)->give();
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        auto semaphore = std::make_unique<Semaphore>(0, 1, false);
        handedOver = semaphore.get();
        handedOver.notify_one();
        ASSERT_TRUE(semaphore->take(round % 2 ? -1 : 60'000));
    }
}

/// Expects that the thread cannot be started, for a reason that contains `why`, and that nothing
/// has changed then.
void expectNoStart(Threadable& threadable, const std::string& why) {
    const unsigned long before = threadable.threadId();
    unsigned long id = 5;
    EXPECT_THAT([&] { Threader().createThread(id, &threadable, "counter", 1, 0); },
                testing::ThrowsMessage<MirelException>(HasSubstr(why)));
    EXPECT_EQ(id, 5U);
    EXPECT_EQ(threadable.threadId(), before);
}

/// Sets a flag after the body of the thread that made it, when the C library ends the thread.
struct SetAtExit {
    std::atomic<bool>* flag = nullptr;
    ~SetAtExit() {
        std::this_thread::yield(); // to those who do not wait for the end
        if (flag)
            *flag = true;
    }
};
thread_local SetAtExit setAtExit;

class Threads : public testing::Test {
protected:
    ~Threads() override {
        mirel::setThreadOptions({});
        mirel::setThreadStartHook(nullptr);
    }
};

TEST_F(Threads, IdentifierIsValidBeforeTheBodyBegins) {
    for (int round = 0; round < 200; ++round) {
        unsigned long id = 0;
        Body body([&](Body& self) {
            EXPECT_EQ(self.threadId(), Threadable::currentThreadId());
            EXPECT_EQ(self.threadId(), id);
        });
        Threader().createThread(id, &body, "", 1, 0);
        body.waitForThreadCompletion();
    }
}

TEST_F(Threads, CopiesWaitForAnObjectThatDeletesItself) {
    mirel::setThreadOptions({.keptThreads = 0}); // so that they wait for the OS thread, too
    for (int round = 0; round < 200; ++round) {
        std::atomic<bool> gone{false};
        Gate letGo;
        auto* const body = new Body([&](Body& self) {
            setAtExit.flag = &gone;
            letGo.pass();
            delete &self;
        });
        start(*body);
        Body copy(*body);
        const auto wait = [&] {
            copy.waitForThreadCompletion();
            return gone.load();
        };
        auto other = std::async(std::launch::async, wait);
        letGo.open();
        EXPECT_TRUE(wait());
        EXPECT_TRUE(other.get());
    }
}

TEST_F(Threads, ThatNobodyWaitsForAreGivenBack) {
    // Each deletes itself, possibly before its starter is back. One that leaks keeps its stack.
    constexpr std::size_t kStack = 64 * 1024 * 1024;
    constexpr std::size_t kRounds = 200;
    static std::atomic<std::size_t> runs; // outlives the last thread's last access
    runs = 0;
    mirel::setThreadOptions({.stackSize = kStack, .keptThreads = 0});
    std::vector<std::unique_ptr<Body>> copies; // must leave a thread alone that is gone already
    const auto addressSpaceInUse = [] {
        std::size_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    };
    const std::size_t before = addressSpaceInUse();
    for (std::size_t round = 0; round < kRounds; ++round) {
        start(*new Body([&copies, detach = round % 4 == 0](Body& self) {
            if (detach) {
                pthread_detach(Threadable::currentThreadId());
                copies.push_back(std::make_unique<Body>(self));
            }
            delete &self;
            ++runs;
            runs.notify_one();
        }));
        runs.wait(round);
    }
    EXPECT_LT(addressSpaceInUse(), before + kRounds / 4 * kStack);
}

TEST_F(Threads, OneThatIsEndingMayStartTheNext) {
    for (int round = 0; round < 100; ++round) {
        std::atomic<bool> secondGone{false};
        Gate begin;
        int runs = 0;
        auto* const body = new Body([&](Body& self) {
            if (++runs == 2) {
                setAtExit.flag = &secondGone;
                delete &self;
                pthread_exit(nullptr);
            }
            begin.pass();
            const unsigned long dying = self.threadId();
            try {
                pthread_exit(nullptr);
            } catch (const abi::__forced_unwind&) {
                EXPECT_NE(start(self), dying);
                pthread_detach(dying);
                throw;
            }
        });
        start(*body);
        Body copy(*body);
        begin.open();
        copy.waitForThreadCompletion();
        EXPECT_TRUE(secondGone);
    }
}

TEST_F(Threads, ObjectHasOneThreadAtATime) {
    int runs = 0;
    Gate letGo;
    Body body([&](Body&) {
        ++runs;
        letGo.pass();
    });
    start(body);
    expectNoStart(body, "still running");
    letGo.open();
    body.waitForThreadCompletion();
    start(body);
    body.waitForThreadCompletion();
    EXPECT_EQ(runs, 2);
}

TEST_F(Threads, WhatTheBodyThrowsIsLogged) {
    const LogCapture log;
    runToItsEnd([](Body&) { throw std::runtime_error("oops"); });
    EXPECT_THAT(log.with("2 "),
                ElementsAre(HasSubstr("body of a thread threw std::runtime_error: oops")));
}

TEST_F(Threads, RefusedStartIsTriedAgainForABoundedTime) {
    int tries = 0;
    mirel::setThreadStartHook([&] { return ++tries < 4 ? EAGAIN : 0; });
    runToItsEnd([](Body&) {});
    EXPECT_EQ(tries, 4);

    mirel::setThreadOptions({.startPatience = 50ms});
    Body body(nullptr);
    const auto begin = Clock::now();
    mirel::setThreadStartHook([&] { return ++tries, EPERM; });
    expectNoStart(body, "\"counter\" could not be started: Operation not permitted");
    EXPECT_EQ(tries, 5) << "what the system will never permit is not tried again";
    mirel::setThreadStartHook([] { return EAGAIN; });
    expectNoStart(body, "temporarily unavailable");
    EXPECT_GE(Clock::now() - begin, 50ms);

    mirel::setThreadOptions({.startPatience = std::chrono::hours(1)});
    Semaphore lock(1, 1, false);
    CriticalSection section(lock);
    expectNoStart(body, "temporarily unavailable"); // at once: an end may need the lock
    body.waitForThreadCompletion();
}

TEST_F(Threads, HaveTheNameAndTheStackThatWereAskedFor) {
    // Larger than any stack that the C library keeps for reuse. The guard page may be a part of it.
    constexpr std::size_t kLarge = 24 * 1024 * 1024;
    struct Case {
        const char *name, *expectedName;
        std::size_t stack, smallestStack;
    };
    for (const Case& c : {Case{"", "mirel-thread", kLarge - 100, kLarge - 65536},
                          Case{"a-name-of-18-bytes", "a-name-of-18-by", 1, 16384}}) {
        char name[16] = "";
        std::size_t stack = 0;
        const auto lookAround = [&](Body&) {
            pthread_getname_np(pthread_self(), name, sizeof name);
            pthread_attr_t attributes;
            pthread_getattr_np(pthread_self(), &attributes);
            pthread_attr_getstacksize(&attributes, &stack);
            pthread_attr_destroy(&attributes);
        };
        mirel::setThreadOptions({.stackSize = c.stack});
        runToItsEnd(lookAround, 1, c.name);
        EXPECT_STREQ(name, c.expectedName);
        EXPECT_GE(stack, c.smallestStack);
    }
}

int niceOfThisThread() { return getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())); }

TEST_F(Threads, RunAtTheNiceValueOfTheirPriority) {
    const int base = niceOfThisThread();
    mirel::setThreadOptions({.niceStep = 3});
    const std::pair<int, int> cases[] = {{2, 0}, {1, 3}, {0, 6}, {-5, 6}, {7, 0}};
    for (const auto& [priority, above] : cases) {
        int nice = -100;
        // Started by another of its kind: steps do not add up from thread to thread.
        const auto look = [&](Body&) { nice = niceOfThisThread(); };
        runToItsEnd([&](Body& self) { runToItsEnd(look, self.getThreadPriorityForPlatform()); },
                    priority);
        EXPECT_EQ(nice, std::min(base + above, 19)) << priority;
    }
}

TEST_F(Threads, OfLowerPrioritiesYield) {
    struct Case {
        bool yield;
        int priority, policy;
    };
    for (const Case& c : {Case{true, 2, SCHED_OTHER}, Case{true, 1, SCHED_BATCH},
                          Case{true, 0, SCHED_BATCH}, Case{false, 0, SCHED_OTHER}}) {
        mirel::setThreadOptions({.niceStep = 0, .workersYield = c.yield});
        int seen = -1;
        const auto look = [&](Body&) { seen = sched_getscheduler(0); };
        // Started by one that yields itself.
        runToItsEnd([&](Body&) { runToItsEnd(look, c.priority); }, 1);
        EXPECT_EQ(seen, c.policy) << c.priority;
    }
}

/// Whether threads may have real-time priorities here.
bool mayBeRealTime() {
    bool may = false;
    std::jthread([&may] {
        const sched_param lowest{.sched_priority = 1};
        may = pthread_setschedparam(pthread_self(), SCHED_RR, &lowest) == 0;
    });
    return may;
}

TEST_F(Threads, OfRealTimeLendTheirPriorityToWhoHoldsALock) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "it does not end under ThreadSanitizer";
#endif
    if (!mayBeRealTime())
        GTEST_SKIP() << "needs the privilege to run threads under SCHED_RR";
    mirel::setThreadOptions({.realTimePriority = 10});
    Semaphore lock(1, 1, false);
    std::atomic<bool> lockIsWantedNow{false};
    std::atomic<bool> otherHasRun{false};
    bool otherWasFirst = true;
    Body other([&](Body&) { otherHasRun = true; }, 1);
    Body urgent(
        [&](Body&) {
            start(other); // gets the processor when this thread waits
            lockIsWantedNow = true;
            const CriticalSection section(lock);
            otherWasFirst = otherHasRun;
        },
        2);
    runToItsEnd(
        [&](Body&) {
            // On one processor from here on, as the threads that it starts.
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
            sched_setaffinity(0, sizeof one, &one);
            const CriticalSection section(lock);
            start(urgent);
            while (!lockIsWantedNow)
                sched_yield();
        },
        0);
    urgent.waitForThreadCompletion();
    other.waitForThreadCompletion();
    EXPECT_FALSE(otherWasFirst) << "the lock's owner waited for a thread less urgent than "
                                   "the one that waited for the lock";
}

/// Takes from this thread, and from those it starts, the right to lower their nice value.
void giveUpThePrivilege() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct capabilities[2]{};
    const rlimit none{0, 0};
    if (syscall(SYS_capset, &header, capabilities) != 0 || setrlimit(RLIMIT_NICE, &none) != 0)
        std::_Exit(2);
}

using ThreadsDeathTest = Threads;

// In a process of its own, because the privilege cannot be taken back.
TEST_F(ThreadsDeathTest, KeepTheirPriorityWithoutThePrivilege) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [] {
        giveUpThePrivilege();
        const int base = niceOfThisThread();
        mirel::setThreadOptions({.niceStep = 3});
        int nice = -100;
        sigset_t mask;
        sigset_t usr1;
        sigemptyset(&usr1);
        sigaddset(&usr1, SIGUSR1);
        const auto look = [&](Body&) {
            nice = niceOfThisThread();
            pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        };
        runToItsEnd(
            [&](Body&) {
                pthread_sigmask(SIG_BLOCK, &usr1, nullptr);
                runToItsEnd(look, 2); // started by a thread that is lower than it
            },
            0);
        const bool good =
            nice == base && sigismember(&mask, SIGUSR1) && !sigismember(&mask, SIGUSR2);
        std::_Exit(good ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

} // namespace
