#include "framework/CriticalSection.h"
#include "framework/MirelException.h"
#include "framework/Semaphore.h"
#include "framework/Threadable.h"
#include "framework/Threader.h"
#include "standalone/ThreadOptions.h"
#include "standalone/ThreadStartHook.h"
#include "tests/unit/CapturedLog.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cxxabi.h>
#include <fstream>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(Semaphore, RefusesImpossibleCounts) {
    const std::pair<int, int> cases[] = {{0, 0}, {-1, 1}, {2, 1}, {0, 65536}, {0, -1}};
    for (const auto& [initial, maximum] : cases)
        EXPECT_THROW(Semaphore(initial, maximum, false), MirelException) << initial << maximum;
    Semaphore largest(65535, 65535, false);
    EXPECT_TRUE(largest.take(0));
}

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

    // Whoever gave up is not counted as waiting; whoever waits is woken.
    for (const int timeout : {-1, 3'600'000}) {
        auto taking = std::async(std::launch::async,
                                 [&semaphore, timeout] { return semaphore.take(timeout); });
        EXPECT_EQ(taking.wait_for(5ms), std::future_status::timeout);
        semaphore.give();
        EXPECT_TRUE(taking.get());
    }
}

TEST(Semaphore, LosesNoUnitToATimeoutThatComesAtTheSameTime) {
    constexpr int kUnits = 3000;
    Semaphore semaphore(0, kUnits, false);
    std::atomic<int> taken{0};
    {
        std::vector<std::jthread> takers;
        for (int timeout = 0; timeout < 3; ++timeout)
            takers.emplace_back([&, timeout] {
                while (taken < kUnits)
                    if (semaphore.take(timeout))
                        ++taken;
            });
        for (int i = 0; i < kUnits; ++i) {
            semaphore.give();
            if (i % 8 == 0)
                std::this_thread::yield();
        }
    }
    EXPECT_EQ(taken, kUnits);
    EXPECT_FALSE(semaphore.take(0));
}

TEST(Semaphore, GuardsACriticalSectionAndWakesEveryWaiterInTurn) {
    Semaphore semaphore(1, 1, false);
    long count = 0;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&] {
                for (int round = 0; round < 5000; ++round) {
                    const CriticalSection lock(semaphore);
                    ++count;
                }
            });
    }
    EXPECT_EQ(count, 20000);
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

class Body : public Threadable {
public:
    explicit Body(std::function<void(Body&)> body = nullptr,
                  MirelThreadPriority priority = ePriorityNormal)
        : m_body(std::move(body)),
          m_priority(priority) {}

    void run() override { m_body(*this); }
    MirelThreadPriority getThreadPriorityForPlatform() override { return m_priority; }

private:
    const std::function<void(Body&)> m_body;
    const MirelThreadPriority m_priority = ePriorityNormal;
};

unsigned long start(Threadable& threadable, const std::string& name = "") {
    unsigned long id = 0;
    EXPECT_EQ(Threader().createThread(id, &threadable, name, 1, 0), 0);
    return id;
}

void runToItsEnd(std::function<void(Body&)> body, MirelThreadPriority priority = ePriorityNormal) {
    Body threadable(std::move(body), priority);
    start(threadable);
    threadable.waitForThreadCompletion();
}

/// Sets a flag after the body of the thread that made it, when the C library ends the thread.
struct SetAtExit {
    std::atomic<bool>* flag = nullptr;
    ~SetAtExit() {
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
        bool same = false;
        Body body([&](Body& self) {
            same = self.threadId() == Threadable::currentThreadId() && id == self.threadId();
        });
        EXPECT_EQ(body.threadId(), 0U);
        Threader().createThread(id, &body, "", 1, 0);
        body.waitForThreadCompletion();
        EXPECT_TRUE(same);
    }
}

TEST_F(Threads, EveryWaiterReturnsWhenTheThreadIsGone) {
    std::atomic<bool> gone{false};
    std::promise<void> letGo;
    Body body([&](Body&) {
        setAtExit.flag = &gone;
        letGo.get_future().wait();
    });
    start(body);
    const auto wait = [&] {
        body.waitForThreadCompletion();
        return gone.load();
    };
    auto first = std::async(std::launch::async, wait);
    auto second = std::async(std::launch::async, wait);
    letGo.set_value();
    EXPECT_TRUE(first.get());
    EXPECT_TRUE(second.get());
    EXPECT_TRUE(wait());
}

TEST_F(Threads, CopyWaitsForAnObjectThatDeletesItself) {
    for (int round = 0; round < 200; ++round) {
        std::atomic<bool> gone{false};
        std::promise<void> letGo;
        auto* const body = new Body([&](Body& self) {
            setAtExit.flag = &gone;
            letGo.get_future().wait();
            delete &self;
        });
        const unsigned long id = start(*body);
        Body copy(*body);
        letGo.set_value();
        copy.waitForThreadCompletion();
        EXPECT_TRUE(gone);
        EXPECT_EQ(copy.threadId(), id);
    }
}

/// In bytes.
std::size_t addressSpaceInUse() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST_F(Threads, ThatNobodyWaitsForAreGivenBack) {
    // Each deletes itself, possibly before its starter is back, and keeps its stack if it leaks.
    constexpr std::size_t kStack = 64 * 1024 * 1024;
    constexpr std::size_t kRounds = 200;
    static std::atomic<std::size_t> runs; // outlives the last thread's last access
    runs = 0;
    mirel::setThreadOptions({.stackSize = kStack});
    std::vector<std::unique_ptr<Body>> detached;
    const std::size_t before = addressSpaceInUse();
    for (std::size_t round = 0; round < kRounds; ++round) {
        auto* const body = new Body([&detached, detach = round % 2 == 0](Body& self) {
            if (detach) {
                pthread_detach(Threadable::currentThreadId());
                detached.push_back(std::make_unique<Body>(self));
            }
            delete &self;
            ++runs;
            runs.notify_one();
        });
        EXPECT_NE(start(*body), 0U);
        runs.wait(round);
    }
    EXPECT_LT(addressSpaceInUse(), before + kRounds / 4 * kStack);
    // What stands for a detached thread that is gone by now must leave it alone.
    for (const auto& copy : detached)
        copy->waitForThreadCompletion();
}

TEST_F(Threads, EndedByTheSystemCountsAsEnded) {
    const auto exits = [](Body&) { pthread_exit(nullptr); };
    const auto isCancelled = [](Body&) {
        pthread_cancel(pthread_self());
        pthread_testcancel();
    };
    const auto failsToStartTheNext = [](Body& self) {
        try {
            pthread_exit(nullptr);
        } catch (const abi::__forced_unwind&) {
            mirel::setThreadStartHook([] { return EPERM; });
            unsigned long id = 0;
            EXPECT_THROW(Threader().createThread(id, &self, "", 1, 0), MirelException);
            mirel::setThreadStartHook(nullptr);
            throw;
        }
    };
    for (const auto& body :
         {std::function<void(Body&)>(exits), {isCancelled}, {failsToStartTheNext}}) {
        std::atomic<bool> gone{false};
        runToItsEnd([&](Body& self) {
            setAtExit.flag = &gone;
            body(self);
        });
        EXPECT_TRUE(gone);
    }
}

TEST_F(Threads, OneThatIsEndingMayStartTheNext) {
    for (int round = 0; round < 100; ++round) {
        std::atomic<bool> secondGone{false};
        std::promise<void> begin;
        std::promise<void> letGo;
        int runs = 0;
        auto* const body = new Body([&](Body& self) {
            if (++runs == 2) {
                setAtExit.flag = &secondGone;
                letGo.get_future().wait();
                delete &self;
                return;
            }
            begin.get_future().wait();
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
        auto waiting = std::async(std::launch::async, [&] {
            copy.waitForThreadCompletion();
            return secondGone.load();
        });
        begin.set_value();
        letGo.set_value();
        copy.waitForThreadCompletion();
        EXPECT_TRUE(secondGone);
        EXPECT_TRUE(waiting.get());
        EXPECT_EQ(runs, 2);
    }
}

TEST_F(Threads, ObjectHasOneThreadAtATime) {
    std::atomic<int> runs{0};
    std::promise<void> letGo;
    const auto mayGo = letGo.get_future().share();
    Body body([&](Body&) {
        ++runs;
        mayGo.wait();
    });
    const unsigned long id = start(body);
    unsigned long unchanged = 5;
    EXPECT_THROW(Threader().createThread(unchanged, &body, "", 1, 0), MirelException);
    EXPECT_EQ(unchanged, 5U);
    EXPECT_EQ(body.threadId(), id);
    letGo.set_value();
    body.waitForThreadCompletion();
    start(body);
    body.waitForThreadCompletion();
    EXPECT_EQ(runs, 2);
}

struct NotAnException {};

TEST_F(Threads, WhatTheBodyThrowsIsLogged) {
    const CapturedLog log;
    runToItsEnd([](Body&) { throw std::runtime_error("oops"); });
    runToItsEnd([](Body&) { throw NotAnException(); });
    EXPECT_THAT(log.lines(), ElementsAre(AllOf(HasSubstr("2 Threader: "), HasSubstr("body"),
                                               HasSubstr("std::runtime_error: oops")),
                                         HasSubstr("NotAnException")));
}

TEST_F(Threads, RefusedStartIsTriedAgain) {
    int refusals = 3;
    mirel::setThreadStartHook([&] { return refusals-- > 0 ? EAGAIN : 0; });
    runToItsEnd([](Body&) {});
    EXPECT_EQ(refusals, -1);
}

TEST_F(Threads, RefusedForGoodChangesNothing) {
    struct Case {
        int error;
        std::chrono::milliseconds patience;
        bool triedAgain;
        const char* text;
    };
    for (const Case& c : {Case{EAGAIN, 50ms, true, "temporarily unavailable"},
                          Case{EAGAIN, 0ms, false, "temporarily unavailable"},
                          Case{EPERM, 50ms, false, "not permitted"}}) {
        mirel::setThreadOptions({.startPatience = c.patience});
        int tries = 0;
        mirel::setThreadStartHook([&] {
            ++tries;
            return c.error;
        });
        Body body([](Body&) {});
        unsigned long id = 5;
        const auto begin = Clock::now();
        try {
            Threader().createThread(id, &body, "counter", 1, 0);
            ADD_FAILURE() << "started";
        } catch (const MirelException& failure) {
            EXPECT_THAT(failure.message(), AllOf(HasSubstr("\"counter\""), HasSubstr(c.text)));
        }
        EXPECT_EQ(tries > 1, c.triedAgain);
        EXPECT_GE(Clock::now() - begin, c.triedAgain ? c.patience : 0ms);
        EXPECT_EQ(id, 5U);
        EXPECT_EQ(body.threadId(), 0U);
        body.waitForThreadCompletion();
    }
}

TEST_F(Threads, OptionsOutOfRangeAreRefused) {
    mirel::setThreadOptions({.niceStep = 3});
    const mirel::ThreadOptions cases[] = {
        {.stackSize = 0},        {.stackSize = ~std::size_t{0}}, {.niceStep = -1},
        {.niceStep = 10},        {.realTimePriority = -1},       {.realTimePriority = 98},
        {.startPatience = -1ms}, {.startPatience = 2h},
    };
    for (const mirel::ThreadOptions& options : cases)
        EXPECT_THROW(mirel::setThreadOptions(options), MirelException) << &options - cases;
    EXPECT_EQ(mirel::threadOptions().niceStep, 3);
}

std::string nameOfThisThread() {
    std::ifstream file("/proc/self/task/" + std::to_string(gettid()) + "/comm");
    std::string name;
    std::getline(file, name);
    return name;
}

TEST_F(Threads, AreNamed) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "mirel-thread"}, {"reader", "reader"}, {"a-name-of-18-bytes", "a-name-of-18-by"}};
    for (const auto& [name, expected] : cases) {
        std::string actual;
        Body body([&](Body&) { actual = nameOfThisThread(); });
        start(body, name);
        body.waitForThreadCompletion();
        EXPECT_EQ(actual, expected);
    }
}

TEST_F(Threads, GetTheStackThatWasAskedFor) {
    const auto stackOfAThread = [] {
        std::size_t size = 0;
        runToItsEnd([&](Body&) {
            pthread_attr_t attributes;
            pthread_getattr_np(pthread_self(), &attributes);
            pthread_attr_getstacksize(&attributes, &size);
            pthread_attr_destroy(&attributes);
        });
        return size;
    };
    // Larger than any stack that the C library keeps from former threads and could use instead. It
    // may take the guard page out of it.
    constexpr std::size_t kAsked = 24 * 1024 * 1024;
    mirel::setThreadOptions({.stackSize = kAsked - 100});
    EXPECT_NEAR(static_cast<double>(stackOfAThread()), kAsked, 64 * 1024);
    mirel::setThreadOptions({.stackSize = 1});
    EXPECT_GE(stackOfAThread(), 16U * 1024) << "threads with less than is possible do start";
}

int niceOfThisThread() { return getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())); }

TEST_F(Threads, RunAtTheNiceValueOfTheirPriority) {
    const int base = niceOfThisThread();
    mirel::setThreadOptions({.niceStep = 3});
    const std::pair<int, int> cases[] = {{2, 0}, {1, 3}, {0, 6}, {-5, 6}, {7, 0}};
    for (const auto& [priority, above] : cases) {
        int nice = -100;
        int niceOfInner = -100;
        runToItsEnd(
            [&](Body& self) {
                nice = niceOfThisThread();
                // Steps do not add up from thread to thread.
                runToItsEnd([&](Body&) { niceOfInner = niceOfThisThread(); },
                            self.getThreadPriorityForPlatform());
            },
            MirelThreadPriority(priority));
        EXPECT_EQ(nice, std::min(base + above, 19)) << priority;
        EXPECT_EQ(niceOfInner, nice) << priority;
    }
}

TEST(ThreadPriorityDeathTest, RefusedPriorityIsLoggedOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // In a process of its own, which gives up the privilege if it has it.
    const auto runTwoThreads = [] {
        const rlimit none{0, 0};
        setrlimit(RLIMIT_RTPRIO, &none);
        if (geteuid() == 0 && setuid(65534) != 0)
            _exit(3);
        const CapturedLog log;
        mirel::setThreadOptions({.realTimePriority = 10});
        int runs = 0;
        runToItsEnd([&](Body&) { ++runs; });
        runToItsEnd([&](Body&) { ++runs; });
        for (const std::string& line : log.lines())
            std::fprintf(stderr, "%s\n", line.c_str());
        _exit(runs == 2 ? 0 : 4);
    };
    EXPECT_EXIT(runTwoThreads(), testing::ExitedWithCode(0),
                "^3 Threader: [^\n]*real-time priority 11 [^\n]*not permitted[^\n]*nice value "
                "[^\n]*\n$");
}

} // namespace
