// The OS threads that `Threader` keeps: which object runs on which, and what it finds there.

#include "runtime/threads/ThreadOptions.h"
#include "runtime/threads/ThreadSettings.h"
#include "tests/unit/ThreadsSupport.h"

#include <cfenv>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

class KeptThreads : public testing::Test {
protected:
    KeptThreads() { mirel::setThreadOptions({}); } // ends those that rest
    ~KeptThreads() override { mirel::setThreadOptions({}); }
};

/// Runs an object to its end, and says on which OS thread.
pid_t osThreadOf(
    const std::function<void()>& body = [] {}, int priority = 1) {
    pid_t thread = 0;
    runToItsEnd(
        [&](Body&) {
            thread = gettid();
            body();
        },
        priority);
    return thread;
}

bool exists(pid_t thread) {
    return access(("/proc/self/task/" + std::to_string(thread)).c_str(), F_OK) == 0;
}

void waitUntilGone(pid_t thread) {
    while (exists(thread))
        sched_yield();
}

/// What service code finds in its thread.
struct Found {
    mirel::ThreadSurroundings surroundings;
    mirel::ThreadScheduling scheduling;
    std::string name;
    int cancelState = -1;
    int cancelType = -1;
    int rounding = -1;

    static Found now() {
        Found found;
        found.surroundings = mirel::ThreadSurroundings::ofThisThread().value();
        found.scheduling = mirel::ThreadScheduling::ofThisThread();
        char name[16];
        pthread_getname_np(pthread_self(), name, sizeof name);
        found.name = name;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &found.cancelState);
        pthread_setcancelstate(found.cancelState, nullptr);
        pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &found.cancelType);
        pthread_setcanceltype(found.cancelType, nullptr);
        found.rounding = std::fegetround();
        return found;
    }
    bool operator==(const Found&) const = default;
};

void setMask(int how) {
    sigset_t usr1;
    sigemptyset(&usr1);
    sigaddset(&usr1, SIGUSR1);
    pthread_sigmask(how, &usr1, nullptr);
}

TEST_F(KeptThreads, RunTheNextObjectOfTheirPriority) {
    const pid_t normal = osThreadOf();
    const pid_t low = osThreadOf([] {}, 0);
    EXPECT_NE(low, normal);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(osThreadOf(), normal);
        EXPECT_EQ(osThreadOf([] {}, 0), low);
    }
}

TEST_F(KeptThreads, RunOneMoreAfterAnObjectThatDetachesItself) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "under ThreadSanitizer such a thread ends";
#endif
    const auto detach = [] { pthread_detach(Threadable::currentThreadId()); };
    const pid_t thread = osThreadOf(detach);
    EXPECT_EQ(osThreadOf(detach), thread);
    EXPECT_EQ(osThreadOf(), thread);
}

TEST_F(KeptThreads, BringNothingOfTheFormerObject) {
    struct Case {
        const char* what;
        void (*leave)();
        bool ends; ///< the OS thread, with the object
    };
    const cpu_set_t processors = mirel::ThreadSurroundings::ofThisThread().value().processors;
    const Case cases[] = {
        {"signal mask", [] { setMask(SIG_BLOCK); }, true},
        {"processors",
         [] {
             cpu_set_t first;
             CPU_ZERO(&first);
             CPU_SET(static_cast<std::size_t>(sched_getcpu()), &first);
             sched_setaffinity(0, sizeof first, &first);
         },
         CPU_COUNT(&processors) > 1},
        {"nice value", [] { setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 17); }, true},
        {"policy",
         [] {
             const sched_param none{};
             pthread_setschedparam(pthread_self(), SCHED_IDLE, &none);
         },
         true},
        {"name", [] { pthread_setname_np(pthread_self(), "changed"); }, false},
        {"cancellation off", [] { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr); },
         false},
        {"cancellation at any time",
         [] { pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr); }, false},
        {"cancellation to come",
         [] {
             pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
             pthread_cancel(pthread_self());
         },
         true},
        {"rounding", [] { std::fesetround(FE_UPWARD); }, false},
        {"pthread_exit", [] { pthread_exit(nullptr); }, true},
    };
    Found fresh;
    osThreadOf([&] { fresh = Found::now(); });
    for (const Case& c : cases) {
        const pid_t former = osThreadOf(c.leave);
        Found next;
        const pid_t thread = osThreadOf([&] { next = Found::now(); });
        EXPECT_TRUE(next == fresh) << c.what;
        EXPECT_EQ(thread != former, c.ends) << c.what;
    }
}

TEST_F(KeptThreads, HaveWhatTheirStarterHas) {
    const pid_t thread = osThreadOf();
    for (const int how : {SIG_BLOCK, SIG_UNBLOCK}) {
        setMask(how);
        sigset_t mask;
        EXPECT_EQ(osThreadOf([&] { pthread_sigmask(SIG_SETMASK, nullptr, &mask); }), thread);
        EXPECT_EQ(sigismember(&mask, SIGUSR1), how == SIG_BLOCK);
    }
}

TEST_F(KeptThreads, AreNotWaitedForByWhoWaitsForTheFormerObject) {
    Body first([](Body&) {});
    const unsigned long id = start(first);
    const Body copy(first);
    first.waitForThreadCompletion();
    Gate letGo;
    Body second([&](Body&) { letGo.pass(); });
    EXPECT_EQ(start(second), id);
    Body(copy).waitForThreadCompletion();
    first.waitForThreadCompletion();
    letGo.open();
    second.waitForThreadCompletion();
}

TEST_F(KeptThreads, AreAsManyAndRestForAsLongAsTheOptionsSay) {
    const auto twoAtATime = [] {
        pid_t other = 0;
        const pid_t thread = osThreadOf([&] { other = osThreadOf(); });
        return std::pair(other, thread); // in the order in which they have come to rest
    };
    mirel::setThreadOptions({.keptThreads = 1});
    const auto [first, second] = twoAtATime();
    waitUntilGone(second);
    EXPECT_EQ(osThreadOf(), first);

    mirel::setThreadOptions({.keptThreads = 0});
    waitUntilGone(first);
    EXPECT_NE(osThreadOf(), osThreadOf());

    mirel::setThreadOptions({.keptFor = 1ms});
    waitUntilGone(osThreadOf());
}

} // namespace
