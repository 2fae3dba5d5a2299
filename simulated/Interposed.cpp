// Functions of the C library that make a thread wait, end, give way or look at the clock. This
// library stands before the C library in a program, so calls find these first. In a simulated run
// they are steps of the scheduler; elsewhere they go on to the functions that they stand before.
//
// So code that is written for real threads, with std::mutex and std::condition_variable, runs in a
// simulation as it is.

#include "simulated/AddressSanitizer.h"
#include "simulated/Scheduler.h"

#include <cerrno>
#include <ctime>
#include <dlfcn.h>
#include <map>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>
#include <unwind.h>
#include <vector>

using namespace mirel::simulated;

namespace {

/// The next function of this name.
template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// ---- Mutexes and condition variables: simulated altogether; the objects stay untouched ---------

bool isUnlocked(const void* mutex) { return static_cast<const MutexState*>(mutex)->depth == 0; }
bool isWoken(const void* waiter) { return static_cast<const ConditionWaiter*>(waiter)->woken; }

int tryLock(Scheduler& run, const pthread_mutex_t* object) {
    MutexState& mutex = run.state.mutexes[object];
    const int self = run.running().number;
    const bool recursive = (object->__data.__kind & 3) == PTHREAD_MUTEX_RECURSIVE;
    if (mutex.depth > 0 && !(recursive && mutex.owner == self))
        return EBUSY;
    mutex.owner = self;
    ++mutex.depth;
    return 0;
}

int lock(Scheduler& run, const pthread_mutex_t* object) {
    const MutexState& mutex = run.state.mutexes[object];
    if (mutex.depth > 0 && mutex.owner == run.running().number && tryLock(run, object) == 0)
        return 0; // once more
    run.perform({"lock of a mutex", object, Access::write, &isUnlocked, &mutex});
    return tryLock(run, object);
}

void unlock(Scheduler& run, const pthread_mutex_t* object) {
    MutexState& mutex = run.state.mutexes[object];
    if (mutex.depth == 0 || mutex.owner != run.running().number)
        run.fail("unlock of a mutex that the thread has not locked in this run");
    run.touch(object);
    --mutex.depth;
}

int wait(Scheduler& run, const pthread_cond_t* condition, const pthread_mutex_t* mutex,
         std::optional<Duration> deadline) {
    ConditionWaiter waiter;
    run.touch(condition);
    run.state.waiters[condition].push_back(&waiter);
    unlock(run, mutex);
    const bool woken = run.perform(
        {"wait for a condition", condition, Access::write, &isWoken, &waiter, deadline});
    std::erase(run.state.waiters[condition], &waiter);
    lock(run, mutex);
    return woken ? 0 : ETIMEDOUT;
}

void wake(Scheduler& run, const pthread_cond_t* condition, bool all) {
    run.perform({"waking of a condition", condition});
    std::vector<ConditionWaiter*>& waiting = run.state.waiters[condition];
    if (!all && !waiting.empty()) {
        const auto chosen = waiting.begin() + run.pick(static_cast<int>(waiting.size()));
        (*chosen)->woken = true;
        waiting.erase(chosen);
        return;
    }
    for (ConditionWaiter* waiter : waiting)
        waiter->woken = true;
    waiting.clear();
}

// ---- Time ------------------------------------------------------------------------------------

Duration durationOf(const timespec& time) {
    return std::chrono::seconds(time.tv_sec) + Duration(time.tv_nsec);
}

/// All clocks of a run begin here, so that no program takes them for broken.
constexpr Duration kBegin = std::chrono::hours(24 * 365);

void sleepUntil(Scheduler& run, Duration deadline) {
    Step step{"sleep", nullptr};
    step.ready = [](const void*) { return false; };
    step.deadline = deadline;
    run.perform(step);
}

// ---- The end of a thread ---------------------------------------------------------------------

/// Nothing stops the unwinding but the thread's last frame, which handles it.
_Unwind_Reason_Code goOnUnwinding(int, _Unwind_Action, _Unwind_Exception_Class, _Unwind_Exception*,
                                  _Unwind_Context*, void*) {
    return _URC_NO_REASON;
}

/// Unwinds as the C library does it, so that destructors run and handlers of all exceptions are
/// passed through.
[[noreturn]] void unwindThread(Scheduler& run) {
    auto* const exception = new _Unwind_Exception{};
    exception->exception_cleanup = [](_Unwind_Reason_Code, _Unwind_Exception* done) {
        delete done;
        Scheduler* const ofRun = Scheduler::ofRun();
        if (!ofRun->running().unwound)
            ofRun->fail("a handler has stopped the end of a thread; the C library would abort");
    };
    _Unwind_ForcedUnwind(exception, &goOnUnwinding, nullptr);
    run.fail("a thread could not be ended");
}

} // namespace

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    if (Scheduler* const run = Scheduler::current())
        return lock(*run, mutex);
    static auto* const next = real<decltype(pthread_mutex_lock)>("pthread_mutex_lock");
    return next(mutex);
}

int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
    if (Scheduler* const run = Scheduler::current()) {
        run->perform({"trylock of a mutex", mutex});
        return tryLock(*run, mutex);
    }
    static auto* const next = real<decltype(pthread_mutex_trylock)>("pthread_mutex_trylock");
    return next(mutex);
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    if (Scheduler* const run = Scheduler::current()) {
        unlock(*run, mutex);
        run->perform({"after the unlock of a mutex", nullptr});
        return 0;
    }
    static auto* const next = real<decltype(pthread_mutex_unlock)>("pthread_mutex_unlock");
    return next(mutex);
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    if (Scheduler* const run = Scheduler::current())
        return wait(*run, condition, mutex, std::nullopt);
    static auto* const next = real<decltype(pthread_cond_wait)>("pthread_cond_wait");
    return next(condition, mutex);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                           const timespec* deadline) {
    if (Scheduler* const run = Scheduler::current())
        return wait(*run, condition, mutex, durationOf(*deadline) - kBegin);
    static auto* const next = real<decltype(pthread_cond_timedwait)>("pthread_cond_timedwait");
    return next(condition, mutex, deadline);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* deadline) {
    if (Scheduler* const run = Scheduler::current())
        return wait(*run, condition, mutex, durationOf(*deadline) - kBegin);
    static auto* const next = real<decltype(pthread_cond_clockwait)>("pthread_cond_clockwait");
    return next(condition, mutex, clock, deadline);
}

int pthread_cond_signal(pthread_cond_t* condition) noexcept {
    if (Scheduler* const run = Scheduler::current()) {
        wake(*run, condition, false);
        return 0;
    }
    static auto* const next = real<decltype(pthread_cond_signal)>("pthread_cond_signal");
    return next(condition);
}

int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
    if (Scheduler* const run = Scheduler::current()) {
        wake(*run, condition, true);
        return 0;
    }
    static auto* const next = real<decltype(pthread_cond_broadcast)>("pthread_cond_broadcast");
    return next(condition);
}

int sched_yield() noexcept {
    if (Scheduler* const run = Scheduler::current()) {
        Step step{"sched_yield", nullptr};
        step.givesWay = true;
        run->perform(step);
        return 0;
    }
    static auto* const next = real<decltype(sched_yield)>("sched_yield");
    return next();
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    if (Scheduler* const run = Scheduler::ofRun()) { // in a predicate too
#ifdef MIREL_ADDRESS_SANITIZER
        // It looks at the clock by itself when it hands out memory: that must not be part of the
        // run's history, so that orders may be merged here that differ in what a clock has shown.
        const Duration now = run->time() + kBegin;
#else
        const Duration now = run->now() + kBegin;
#endif
        const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
        *time = {static_cast<time_t>(seconds.count()),
                 static_cast<long>(Duration(now - seconds).count())};
        return 0;
    }
    static auto* const next = real<decltype(clock_gettime)>("clock_gettime");
    return next(clock, time);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* rest) {
    if (Scheduler* const run = Scheduler::current()) {
        const bool absolute = (flags & TIMER_ABSTIME) != 0;
        sleepUntil(*run, absolute ? durationOf(*time) - kBegin : run->now() + durationOf(*time));
        return 0;
    }
    static auto* const next = real<decltype(clock_nanosleep)>("clock_nanosleep");
    return next(clock, flags, time, rest);
}

int nanosleep(const timespec* time, timespec* rest) {
    if (Scheduler::current())
        return clock_nanosleep(CLOCK_MONOTONIC, 0, time, rest);
    static auto* const next = real<decltype(nanosleep)>("nanosleep");
    return next(time, rest);
}

unsigned sleep(unsigned seconds) {
    const timespec time{static_cast<time_t>(seconds), 0};
    return nanosleep(&time, nullptr) == 0 ? 0 : seconds;
}

int usleep(useconds_t microseconds) {
    const timespec time{static_cast<time_t>(microseconds / 1000000),
                        static_cast<long>(microseconds % 1000000) * 1000};
    return nanosleep(&time, nullptr);
}

/// A run's threads cannot be cancelled, and their state must not become that of the whole process.
int pthread_setcancelstate(int state, int* former) {
    if (Scheduler::current()) {
        if (former)
            *former = PTHREAD_CANCEL_ENABLE;
        return 0;
    }
    static auto* const next = real<decltype(pthread_setcancelstate)>("pthread_setcancelstate");
    return next(state, former);
}

int pthread_detach(pthread_t id) noexcept {
    if (Scheduler* const run = Scheduler::current()) {
        SimulatedThread* const thread = run->thread(static_cast<int>(id) - 1);
        if (!thread || thread->released)
            run->fail("pthread_detach of a thread that cannot be detached");
        thread->released = true;
        return 0;
    }
    static auto* const next = real<decltype(pthread_detach)>("pthread_detach");
    return next(id);
}

void pthread_exit(void* result) {
    if (Scheduler* const run = Scheduler::current())
        unwindThread(*run);
    static auto* const next = real<decltype(pthread_exit)>("pthread_exit");
    next(result);
    __builtin_unreachable();
}

} // extern "C"
