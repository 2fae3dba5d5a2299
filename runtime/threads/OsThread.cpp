#include "runtime/threads/OsThread.h"

#include "framework/Threadable.h"
#include "runtime/threads/PendingWakeUps.h"
#include "runtime/threads/ThreadEnds.h"
#include "runtime/threads/ThreadPriority.h"
#include "runtime/threads/ThreadRecord.h"
#include "runtime/threads/ThreadStartHook.h"
#include "runtime/threads/ThreadStarter.h"
#include "runtime/values/GuardedCall.h"
#include "runtime/values/ThreadRefused.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace mirel {

namespace {

using Clock = std::chrono::steady_clock;

#if defined(__SANITIZE_THREAD__)
constexpr bool kThreadSanitizer = true;
#elif defined(__has_feature)
constexpr bool kThreadSanitizer = __has_feature(thread_sanitizer);
#else
constexpr bool kThreadSanitizer = false;
#endif
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
constexpr bool kAddressSanitizer = __has_feature(address_sanitizer);
#else
constexpr bool kAddressSanitizer = false;
#endif

/// Frames are far larger under a sanitizer.
constexpr std::size_t kSmallestSanitizedStack =
    kThreadSanitizer || kAddressSanitizer ? std::size_t{2} * 1024 * 1024 : 0;

class ThreadAttributes {
public:
    explicit ThreadAttributes(std::size_t stackSize) {
        pthread_attr_init(&m_attributes);
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const auto smallest =
            std::max(static_cast<std::size_t>(PTHREAD_STACK_MIN), kSmallestSanitizedStack);
        const std::size_t size = std::max(stackSize, smallest);
        pthread_attr_setstacksize(&m_attributes, (size + page - 1) / page * page);
    }
    ~ThreadAttributes() { pthread_attr_destroy(&m_attributes); }

    ThreadAttributes(const ThreadAttributes&) = delete;
    ThreadAttributes& operator=(const ThreadAttributes&) = delete;

    pthread_attr_t& get() { return m_attributes; }

private:
    pthread_attr_t m_attributes{};
};

/// Tells the record that its object has no OS thread any more, also when `pthread_exit` or
/// cancellation ends that.
class EndMark {
public:
    explicit EndMark(const ThreadWork& work) : m_work(work) {}
    ~EndMark() {
        if (!m_isKept)
            m_work.record->ended(m_work.start);
        ThreadEnds::instance().add();
    }

    EndMark(const EndMark&) = delete;
    EndMark& operator=(const EndMark&) = delete;

    void isKept() {
        m_isKept = true;
        m_work.record->left(m_work.start);
    }

private:
    const ThreadWork& m_work;
    bool m_isKept = false;
};

/// Whether a thread's scheduling follows from the options, whoever makes it.
bool determinesScheduling(const ThreadOptions& options) {
    return options.realTimePriority > 0 || (options.niceStep > 0 && options.workersYield &&
                                            sched_getscheduler(getpid()) == SCHED_OTHER);
}

/// As a new thread begins. What has been asked for and has not come yet, comes here.
void resetCancellation() {
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    pthread_testcancel();
}

} // namespace

OsThread::OsThread(const VersionedThreadOptions& options, int priority)
    : m_options(options),
      m_priority(priority),
      m_starter(options.niceStep > 0 && options.realTimePriority == 0
                    ? std::make_unique<ThreadStarter>()
                    : nullptr),
      m_makers(determinesScheduling(options) ? std::nullopt
                                             : std::optional(ThreadScheduling::ofThisThread())) {}

OsThread::~OsThread() = default;

// ---- For who starts an object ------------------------------------------------------------------

OsThread& OsThread::get(const VersionedThreadOptions& options, int priority,
                        const std::string& name) {
    // Who holds a lock holds up those that wait for it, and these may be the threads that would
    // have to end first.
    const bool mayWait = !PendingWakeUps::ofThisThread().holdsLock();
    std::optional<WakeUpsAtOnce> wakeUpsAtOnce;
    std::unique_ptr<OsThread> made;
    std::optional<ThreadEnds::Watch> refused; // from the first refusal on
    Clock::time_point deadline;
    for (;;) {
        const unsigned long endsSeen = refused ? refused->count() : 0;
        int error = callThreadStartHook();
        if (error == 0) {
            if (OsThread* const kept = takeKept(options, priority))
                return *kept;
            if (!made) {
                wakeUpsAtOnce.emplace(); // takes long, and may wait
                made.reset(new OsThread(options, priority));
            }
            error = made->start();
            if (error == 0)
                return *made.release();
        }
        const Clock::time_point now = Clock::now();
        if (!refused) {
            refused.emplace();
            deadline = mayWait ? now + options.startPatience : now;
        }
        // Those that rest may be what there is no room for. Their end is worth another attempt.
        const bool makesRoom = error == EAGAIN && threadKeeper().dismissAll();
        if (error != EAGAIN || (now >= deadline && !makesRoom))
            throw ThreadRefused("thread \"" + name + "\" could not be started: " +
                                    std::generic_category().message(error),
                                __FILE__, __LINE__);
        // An end of one of our threads is the likely reason for a better answer, but not the only
        // one: other parts of the process and of the system have threads as well.
        const Clock::time_point again = now + std::chrono::milliseconds(10);
        refused->waitForNext(endsSeen, makesRoom ? again : std::min(deadline, again));
    }
}

OsThread* OsThread::takeKept(const VersionedThreadOptions& options, int priority) {
    if (options.keptThreads == 0)
        return nullptr;
    auto* const kept = static_cast<OsThread*>(threadKeeper().take(priority, options.version));
    const auto surroundings = kept ? ThreadSurroundings::ofThisThread() : std::nullopt;
    if (!surroundings || !kept->suitsThisStarter()) {
        if (kept)
            ThreadKeeper::dismiss(*kept);
        return nullptr;
    }
    kept->m_starters = *surroundings;
    std::fegetenv(&kept->m_startersFloatingPoint);
    return kept;
}

bool OsThread::suitsThisStarter() const {
    return !m_makers || m_makers == ThreadScheduling::ofThisThread();
}

/// What the system answers.
int OsThread::start() {
    ThreadAttributes attributes(m_options.stackSize);
    return m_starter ? ThreadStarter::start(m_id, attributes.get(), &main, this)
                     : pthread_create(&m_id, &attributes.get(), &main, this);
}

void OsThread::begin(ThreadWork work) {
    m_work = std::move(work);
    ThreadKeeper::wake(*this);
}

// ---- The OS thread -----------------------------------------------------------------------------

void* OsThread::main(void* self) {
    const std::unique_ptr<OsThread> own(static_cast<OsThread*>(self));
    ThreadKeeper::waitForWakeUp(*own);
    do {
        if (!own->runOne())
            return nullptr; // whoever waits for the object joins this thread
    } while (threadKeeper().rest(*own));
    // Nobody waits for it. Without effect when an object has detached it.
    pthread_detach(pthread_self());
    ThreadEnds::instance().add();
    return nullptr;
}

/// False when the OS thread is to end.
bool OsThread::runOne() {
    // Moved, because the next work may come before this one is out of use.
    const ThreadWork work = std::move(m_work);
    EndMark mark(work);
    pthread_setname_np(pthread_self(), work.name.c_str());
    if (std::exchange(m_isNew, false))
        becomeNew();
    else
        becomeLikeNew();
    callGuarded("Threader", "the body of a thread", [&] { work.threadable->run(); });
    resetCancellation();
    if (!mayBeKept() || !threadKeeper().add(*this, m_priority, m_options.version))
        return false;
    mark.isKept();
    return true;
}

void OsThread::becomeNew() {
    bool granted = false;
    callGuarded("Threader", "the log",
                [&] { granted = applyThreadPriority(m_options, m_priority); });
    if (m_options.keptThreads == 0 || !granted)
        return;
    m_surroundings = ThreadSurroundings::ofThisThread();
    m_scheduling = ThreadScheduling::ofThisThread();
}

void OsThread::becomeLikeNew() {
    std::fesetenv(&m_startersFloatingPoint);
    if (m_starters == *m_surroundings)
        return;
    m_starters.apply();
    m_surroundings = m_starters;
}

bool OsThread::mayBeKept() const {
    // The sanitizer does not allow that a thread is detached twice, which the C library answers
    // with an error.
    if (kThreadSanitizer && !callingThreadIsJoinable())
        return false;
    return m_surroundings && m_surroundings == ThreadSurroundings::ofThisThread() &&
           m_scheduling == ThreadScheduling::ofThisThread();
}

} // namespace mirel
