#pragma once

#include "framework/ThreadSafety.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace mirel {

/// A mutex that the compiler knows. Held by means of a `Lock`. What is done under it stands in
/// ordinary functions: clang checks neither constructors and destructors nor predicates.
class MIREL_THREAD_SAFETY(capability("mutex")) Mutex {
    friend class Lock;
    std::mutex m_mutex;
};

/// Holds a mutex for the length of a scope, or for parts of it. One thread's.
class MIREL_THREAD_SAFETY(scoped_lockable) Lock {
public:
    explicit Lock(Mutex& mutex) MIREL_THREAD_SAFETY(acquire_capability(mutex))
        : m_lock(mutex.m_mutex) {}
    ~Lock() MIREL_THREAD_SAFETY(release_capability()) {}

    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void unlock() MIREL_THREAD_SAFETY(release_capability()) { m_lock.unlock(); }
    void lock() MIREL_THREAD_SAFETY(acquire_capability()) { m_lock.lock(); }

    // Both may return early, so the caller waits in a loop.

    void wait(std::condition_variable& changed) { changed.wait(m_lock); }

    /// False when `deadline` has come.
    bool waitUntil(std::condition_variable& changed,
                   std::chrono::steady_clock::time_point deadline) {
        return changed.wait_until(m_lock, deadline) == std::cv_status::no_timeout;
    }

private:
    std::unique_lock<std::mutex> m_lock;
};

} // namespace mirel
