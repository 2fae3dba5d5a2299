// The OS threads of runtime/, kept from object to object, in every order of their steps: the
// sources under other names beside the simulation's own threads, which play those of the system.
// Headers that the sources need come first, so that the names do not change in them.

#include "Explore.h"
#include "framework/MirelException.h"
#include "framework/Semaphore.h"
#include "simulated/Scheduler.h"
#include "simulated/Simulation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cfenv>
#include <climits>
#include <condition_variable>
#include <cxxabi.h>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

using namespace mirel::simulated;

/// What the system knows of its threads; a new one for each run. Identifiers are not used again.
struct System {
    struct Thread {
        bool isDetached = false;
        bool hasEnded = false;
        bool isJoined = false;
        int nice = 0;
    };

    std::map<pthread_t, Thread> threads;
    std::map<int, pthread_t> idOf; ///< by the number of the simulation's thread
    std::size_t most = 4;          ///< that there are at a time

    std::size_t living() const {
        return static_cast<std::size_t>(
            std::count_if(threads.begin(), threads.end(),
                          [](const auto& thread) { return !thread.second.hasEnded; }));
    }
};
std::unique_ptr<System> theSystem;

pthread_t selfOfTheSystem() { return theSystem->idOf[Scheduler::current()->running().number]; }

System::Thread& thisThread() { return theSystem->threads.at(selfOfTheSystem()); }

struct EndOfThread {
    System::Thread& thread;
    ~EndOfThread() {
        point(theSystem.get(), "end of an OS thread");
        thread.hasEnded = true;
    }
};

int createOfTheSystem(pthread_t* thread, const pthread_attr_t*, void* (*body)(void*),
                      void* argument) {
    point(theSystem.get(), "pthread_create");
    if (theSystem->living() >= theSystem->most)
        return EAGAIN;
    *thread = theSystem->threads.size() + 1;
    spawn("OS thread", [id = *thread, body, argument] {
        theSystem->idOf[Scheduler::current()->running().number] = id;
        const EndOfThread end{thisThread()};
        body(argument);
    });
    theSystem->threads[*thread];
    return 0;
}

int detachOfTheSystem(pthread_t id) {
    point(theSystem.get(), "pthread_detach");
    System::Thread& thread = theSystem->threads.at(id);
    require(!thread.isJoined, "a thread is detached that somebody joins");
    return std::exchange(thread.isDetached, true) ? EINVAL : 0;
}

int joinOfTheSystem(pthread_t id, void**) {
    System::Thread& thread = theSystem->threads.at(id);
    require(!thread.isDetached && !thread.isJoined, "a thread is joined that is not joinable");
    thread.isJoined = true;
    waitUntil([&thread] { return thread.hasEnded; }, "pthread_join");
    return 0;
}

int attributesOfTheSystem(pthread_t id, pthread_attr_t* attributes) {
    pthread_attr_init(attributes);
    return pthread_attr_setdetachstate(attributes, theSystem->threads.at(id).isDetached
                                                       ? PTHREAD_CREATE_DETACHED
                                                       : PTHREAD_CREATE_JOINABLE);
}

} // namespace

#define pthread_create createOfTheSystem
#define pthread_detach detachOfTheSystem
#define pthread_join joinOfTheSystem
#define pthread_self selfOfTheSystem
#define pthread_setname_np(thread, name) static_cast<void>(name)
#define pthread_getattr_np attributesOfTheSystem
#define Threadable RuntimeThreadable
#define Threader RuntimeThreader
#define ThreadRecord RuntimeThreadRecord
#include "runtime/threads/OsThread.cpp"
#include "runtime/threads/ThreadEnds.cpp"
#include "runtime/threads/ThreadKeeper.cpp"
#include "runtime/threads/ThreadRecord.cpp"
#include "runtime/threads/Threader.cpp"
#undef ThreadRecord
#undef Threader
#undef Threadable
#undef pthread_getattr_np
#undef pthread_setname_np
#undef pthread_self
#undef pthread_join
#undef pthread_detach
#undef pthread_create

namespace {

constexpr int kMostAtRest = 2;

/// Of the run.
struct Runtime {
    mirel::VersionedThreadOptions options;
    mirel::ThreadKeeper keeper;

    Runtime() {
        options.niceStep = 0;
        options.keptFor = std::chrono::milliseconds(5);
        set();
    }
    void set() {
        ++options.version;
        keeper.setLimits(options.version, kMostAtRest, options.keptFor);
    }
};
std::unique_ptr<Runtime> runtime;

} // namespace

// What has nothing to do with the order of steps.
namespace mirel {

ThreadKeeper& threadKeeper() { return runtime->keeper; }
VersionedThreadOptions versionedThreadOptions() { return runtime->options; }
int callThreadStartHook() { return 0; }
int clampedPriority(int priority) { return priority; }
bool applyThreadPriority(const ThreadOptions&, int) { return true; }
std::optional<ThreadSurroundings> ThreadSurroundings::ofThisThread() {
    return ThreadSurroundings();
}
void ThreadSurroundings::apply() const {}
bool ThreadSurroundings::operator==(const ThreadSurroundings&) const { return true; }
ThreadScheduling ThreadScheduling::ofThisThread() {
    const auto found = theSystem->threads.find(selfOfTheSystem());
    return {.nice = found == theSystem->threads.end() ? 0 : found->second.nice};
}
ThreadStarter::ThreadStarter() = default;
ThreadStarter::~ThreadStarter() = default;
int ThreadStarter::start(pthread_t&, pthread_attr_t&, void* (*)(void*), void*) { return ENOSYS; }
PendingWakeUps& PendingWakeUps::ofThisThread() {
    static PendingWakeUps none;
    return none;
}
void PendingWakeUps::wakeOne(const void*) {}

} // namespace mirel

namespace {

class Body : public RuntimeThreadable {
public:
    explicit Body(std::function<void(Body&)> body, MirelThreadPriority priority = ePriorityNormal)
        : m_body(std::move(body)),
          m_priority(priority) {}

    void run() override {
        require(threadId() == selfOfTheSystem(), "an object has the identifier of its OS thread");
        m_body(*this);
    }
    MirelThreadPriority getThreadPriorityForPlatform() override { return m_priority; }

private:
    const std::function<void(Body&)> m_body;
    const MirelThreadPriority m_priority;
};

unsigned long start(Body& body) {
    unsigned long id = 0;
    RuntimeThreader().createThread(id, &body, "", 1, 0);
    return id;
}

void exploreThreads(const std::function<void()>& body) {
    exploreScenario(testing::UnitTest::GetInstance()->current_test_info()->name(), [&body] {
        theSystem = std::make_unique<System>();
        runtime = std::make_unique<Runtime>();
        body();
        waitUntil([] { return theSystem->living() == 0; }); // each rests for its time at most
        for (const auto& [id, thread] : theSystem->threads)
            require(thread.isDetached || thread.isJoined, "an OS thread is given back");
    });
}

TEST(KeptThreadsSteps, WhoeverWaitsDoesNotWaitForTheNextObject) {
    exploreThreads([] {
        Body first([](Body&) {});
        start(first);
        Body copy(first);
        int waited = 0;
        spawn("waiter", [&] {
            copy.waitForThreadCompletion();
            ++waited;
        });
        first.waitForThreadCompletion();
        Body second([&](Body&) { waitUntil([&] { return waited == 1; }); });
        start(second);
        first.waitForThreadCompletion();
        second.waitForThreadCompletion();
    });
}

TEST(KeptThreadsSteps, EachObjectRunsOnceAndMayBeGoneBeforeItsOsThreadIs) {
    exploreThreads([] {
        int ran = 0;
        for (int starter = 0; starter < 2; ++starter)
            spawn("starter", [&ran] {
                for (int i = 0; i < 2; ++i)
                    start(*new Body([&ran, i](Body& self) {
                        if (i == 1)
                            detachOfTheSystem(selfOfTheSystem());
                        ++ran;
                        delete &self;
                    }));
            });
        waitUntil([&] { return ran == 4; });
    });
}

TEST(KeptThreadsSteps, OneThatIsEndedByItsObjectRunsNoOther) {
    exploreThreads([] {
        int runs = 0;
        auto* const restarting = new Body([&runs](Body& self) {
            const unsigned long dying = self.threadId();
            if (++runs == 2) {
                delete &self;
                return;
            }
            try {
                pthread_exit(nullptr);
            } catch (const abi::__forced_unwind&) {
                require(start(self) != dying, "another OS thread");
                detachOfTheSystem(dying);
                throw;
            }
        });
        start(*restarting);
        const unsigned long other = [] {
            Body body([](Body&) { thisThread().nice = 5; });
            start(body);
            body.waitForThreadCompletion();
            return body.threadId();
        }();
        Body after([](Body&) { require(thisThread().nice == 0, "as in a new OS thread"); });
        require(start(after) != other, "another OS thread");
        after.waitForThreadCompletion();
        waitUntil([&] { return runs == 2; });
    });
}

TEST(KeptThreadsSteps, ThoseAtRestMakeRoomForOthers) {
    exploreThreads([] {
        theSystem->most = 1;
        // Nobody comes that far who asks again every 10 ms.
        runtime->options.keptFor = std::chrono::hours(24);
        runtime->options.startPatience = std::chrono::hours(48);
        runtime->set();
        for (const auto priority : {ePriorityLow, ePriorityHigh, ePriorityHigh}) {
            Body body([](Body&) {}, priority);
            start(body);
            body.waitForThreadCompletion();
        }
        require(theSystem->threads.size() <= 3, "one for each at most");
    });
}

TEST(KeptThreadsSteps, NewOptionsEndThoseAtRest) {
    exploreThreads([] {
        runtime->options.keptFor = std::chrono::hours(1);
        runtime->set();
        int done = 0;
        spawn("starter", [&done] {
            for (int i = 0; i < 2; ++i) {
                Body body([](Body&) {});
                start(body);
                body.waitForThreadCompletion();
                ++done;
            }
        });
        runtime->set();
        waitUntil([&] { return done == 2; });
        runtime->set();
        const auto end = now() + std::chrono::minutes(1);
        waitUntil([] { return theSystem->living() == 0; }, "end of all OS threads");
        require(now() < end, "nobody rests for longer");
    });
}

} // namespace
