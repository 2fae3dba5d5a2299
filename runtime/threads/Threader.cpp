#include "framework/Threader.h"

#include "framework/Threadable.h"
#include "runtime/threads/OsThread.h"
#include "runtime/threads/ThreadPriority.h"
#include "runtime/threads/ThreadRecord.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <pthread.h>
#include <type_traits>
#include <utility>

static_assert(std::is_same_v<pthread_t, unsigned long>, "identifiers are passed as unsigned long");

namespace {

constexpr std::size_t kLongestName = 15; ///< that the system keeps for a thread

/// What a `Threadable` knows of its OS thread.
struct ThreadOf {
    /// 0 until a thread has been started; set after `record`, so whoever reads an identifier from
    /// it may read `record` too.
    std::atomic<unsigned long> id{0};

    /// Written once, by the first start that succeeds; shared with the copies and the OS thread.
    std::shared_ptr<mirel::ThreadRecord> record;
};

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
    const bool startedBefore = threadable->threadId() != 0;
    auto& thread = threadable->m_opaque.as<ThreadOf>();
    const auto record = startedBefore ? thread.record : std::make_shared<mirel::ThreadRecord>();
    const unsigned long number = record->nextStart();
    if (name.empty())
        name = threadable->type();
    name.resize(std::min(name.size(), kLongestName));
    const int priority = mirel::clampedPriority(threadable->getThreadPriorityForPlatform());

    mirel::OsThread& osThread =
        mirel::OsThread::get(mirel::versionedThreadOptions(), priority, name);

    // It does nothing until the object has its identifier. After that the object may be gone at any
    // moment; the record is shared.
    const pthread_t id = osThread.id();
    record->started(number, id);
    if (!startedBefore)
        thread.record = record;
    thread.id.store(id, std::memory_order_release);
    threadId = id;
    osThread.begin({record, number, threadable, std::move(name)});
    return 0;
}
