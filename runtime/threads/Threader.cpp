#include "framework/Threader.h"

#include "framework/MirelException.h"
#include "framework/Threadable.h"
#include "runtime/threads/Mutex.h"
#include "runtime/threads/PendingWakeUps.h"
#include "runtime/threads/ThreadOptions.h"
#include "runtime/threads/ThreadPriority.h"
#include "runtime/threads/ThreadRecord.h"
#include "runtime/threads/ThreadStartHook.h"
#include "runtime/threads/ThreadStarter.h"
#include "runtime/values/GuardedCall.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <memory>
#include <pthread.h>
#include <system_error>
#include <type_traits>
#include <unistd.h>
#include <utility>

static_assert(std::is_same_v<pthread_t, unsigned long>, "identifiers are passed as unsigned long");

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kLongestName = 15; ///< that the system keeps for a thread

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
constexpr bool kSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kSanitized = false;
#endif
constexpr std::size_t kSmallestSanitizedStack =
    std::size_t{2} * 1024 * 1024; ///< frames are far larger then

/// Wakes starters that were refused a thread when one of ours ends.
class ThreadEnds {
public:
    /// Never destroyed: threads may end until the process is gone.
    static ThreadEnds& instance() {
        static ThreadEnds& ends = *new ThreadEnds;
        return ends;
    }

    unsigned long count() {
        const mirel::Lock lock(m_mutex);
        return m_count;
    }

    void add() {
        const mirel::Lock lock(m_mutex);
        ++m_count;
        m_changed.notify_all();
    }

    /// Returns when the count is not `seen` any more, or at `deadline`.
    void waitForNext(unsigned long seen, Clock::time_point deadline) {
        mirel::Lock lock(m_mutex);
        while (m_count == seen && lock.waitUntil(m_changed, deadline)) {
        }
    }

private:
    mirel::Mutex m_mutex;
    std::condition_variable m_changed;
    unsigned long m_count MIREL_GUARDED_BY(m_mutex) = 0;
};

struct StartHook {
    mirel::Mutex mutex;
    std::shared_ptr<std::function<int()>> call MIREL_GUARDED_BY(mutex); ///< null: none
};

StartHook& startHook() {
    static StartHook& hook = *new StartHook;
    return hook;
}

int callStartHook() {
    std::shared_ptr<std::function<int()>> hook;
    {
        const mirel::Lock lock(startHook().mutex);
        hook = startHook().call;
    }
    return hook ? (*hook)() : 0;
}

/// What a new OS thread is given; its own from the moment the system has made it.
struct Start {
    std::shared_ptr<mirel::ThreadRecord> record;
    unsigned long number;
    Threadable* threadable; ///< not to be touched after `run`
    std::string name;
    int priority;
    mirel::ThreadOptions options;
    std::unique_ptr<mirel::ThreadStarter> starter; ///< null if nice values are left alone
};

/// Tells the record that the OS thread has ended, also when `pthread_exit` or cancellation ends it.
class EndMark {
public:
    explicit EndMark(const Start& start) : m_start(start) {}
    ~EndMark() {
        m_start.record->ended(m_start.number);
        ThreadEnds::instance().add();
    }

    EndMark(const EndMark&) = delete;
    EndMark& operator=(const EndMark&) = delete;

private:
    const Start& m_start;
};

void* threadMain(void* argument) {
    const std::unique_ptr<Start> start(static_cast<Start*>(argument));
    const EndMark mark(*start);
    pthread_setname_np(pthread_self(), start->name.c_str());
    start->record->waitToBegin(start->number);
    mirel::callGuarded("Threader", "the log",
                       [&] { mirel::applyThreadPriority(start->options, start->priority); });
    mirel::callGuarded("Threader", "the body of a thread", [&] { start->threadable->run(); });
    return nullptr;
}

/// What a `Threadable` knows of its OS thread.
struct ThreadOf {
    /// 0 until a thread has been started; set after `record`, so whoever reads an identifier from
    /// it may read `record` too.
    std::atomic<unsigned long> id{0};

    /// Written once, by the first start that succeeds; shared with the copies and the OS thread.
    std::shared_ptr<mirel::ThreadRecord> record;
};

class ThreadAttributes {
public:
    explicit ThreadAttributes(std::size_t stackSize) {
        pthread_attr_init(&m_attributes);
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const auto smallest = std::max(static_cast<std::size_t>(PTHREAD_STACK_MIN),
                                       kSanitized ? kSmallestSanitizedStack : std::size_t{0});
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

int startDirectly(pthread_t& thread, pthread_attr_t& attributes, void* (*body)(void*),
                  void* argument) {
    return pthread_create(&thread, &attributes, body, argument);
}

/// Asks the system until it makes the thread or the patience is over; `MirelException` then.
pthread_t startOsThread(std::unique_ptr<Start> start) {
    ThreadAttributes attributes(start->options.stackSize);
    if (start->options.niceStep > 0 && start->options.realTimePriority == 0)
        start->starter = std::make_unique<mirel::ThreadStarter>();
    const auto create = start->starter ? &mirel::ThreadStarter::start : &startDirectly;
    const Clock::time_point deadline = Clock::now() + start->options.startPatience;
    for (;;) {
        const unsigned long endsSeen = ThreadEnds::instance().count();
        pthread_t thread{};
        int error = callStartHook();
        if (error == 0)
            error = create(thread, attributes.get(), &threadMain, start.get());
        if (error == 0) {
            static_cast<void>(start.release());
            return thread;
        }
        const Clock::time_point now = Clock::now();
        if (error != EAGAIN || now >= deadline)
            throw MirelException("thread \"" + start->name + "\" could not be started: " +
                                     std::generic_category().message(error),
                                 __FILE__, __LINE__);
        // An end of one of our threads is the likely reason for a better answer, but not the only
        // one: other parts of the process and of the system have threads as well.
        ThreadEnds::instance().waitForNext(endsSeen,
                                           std::min(deadline, now + std::chrono::milliseconds(10)));
    }
}

} // namespace

Threadable::Threadable() { m_opaque.make<ThreadOf>(); }

Threadable::Threadable(const Threadable& other) {
    auto& own = m_opaque.make<ThreadOf>();
    const auto& others = other.m_opaque.as<ThreadOf>();
    own.id = others.id.load(std::memory_order_acquire);
    if (own.id != 0)
        own.record = others.record;
}

Threadable::~Threadable() { m_opaque.destroy<ThreadOf>(); }

std::string Threadable::type() { return "mirel-thread"; }

unsigned long Threadable::threadId() const {
    return m_opaque.as<ThreadOf>().id.load(std::memory_order_acquire);
}

unsigned long Threadable::currentThreadId() { return pthread_self(); }

void Threadable::waitForThreadCompletion() {
    if (threadId() != 0)
        m_opaque.as<ThreadOf>().record->waitUntilGone();
}

Threader::Threader() = default;
Threader::~Threader() = default;

int Threader::createThread(unsigned long& threadId, Threadable* threadable, std::string name, int,
                           int) {
    const mirel::WakeUpsAtOnce wakeUpsAtOnce; // takes long, may wait, and calls the hook
    const bool startedBefore = threadable->threadId() != 0;
    auto& thread = threadable->m_opaque.as<ThreadOf>();
    const auto record = startedBefore ? thread.record : std::make_shared<mirel::ThreadRecord>();
    const unsigned long number = record->nextStart();
    if (name.empty())
        name = threadable->type();
    name.resize(std::min(name.size(), kLongestName));

    const pthread_t id = startOsThread(std::make_unique<Start>(
        Start{record, number, threadable, std::move(name),
              threadable->getThreadPriorityForPlatform(), mirel::threadOptions(), nullptr}));

    // The new thread is held back until the object has its identifier. After that the object may
    // be gone at any moment; the record is shared.
    record->started(number, id);
    if (!startedBefore)
        thread.record = record;
    thread.id.store(id, std::memory_order_release);
    threadId = id;
    record->letBegin(number);
    return 0;
}

namespace mirel {

void setThreadStartHook(std::function<int()> hook) {
    auto call = hook ? std::make_shared<std::function<int()>>(std::move(hook)) : nullptr;
    const mirel::Lock lock(startHook().mutex);
    startHook().call.swap(call);
}

} // namespace mirel
