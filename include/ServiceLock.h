#pragma once

#include "framework/CriticalSection.h"
#include "framework/Semaphore.h"
#include "framework/ThreadSafety.h"

/// A lock that the compiler knows: a semaphore of one unit, free at first.
class MIREL_THREAD_SAFETY(capability("lock")) ServiceLock : public Semaphore {
public:
    ServiceLock() : Semaphore(1, 1, false) {}
};

static_assert(sizeof(ServiceLock) == sizeof(Semaphore)); // programs rely on the classes' layout

/// Holds a lock for the length of a scope, as a `CriticalSection`.
class MIREL_THREAD_SAFETY(scoped_lockable) ServiceLockGuard {
public:
    explicit ServiceLockGuard(ServiceLock& lock) MIREL_THREAD_SAFETY(acquire_capability(lock))
        : m_section(lock) {}
    ~ServiceLockGuard() MIREL_THREAD_SAFETY(release_capability()) {}

    ServiceLockGuard(const ServiceLockGuard&) = delete;
    ServiceLockGuard& operator=(const ServiceLockGuard&) = delete;

private:
    CriticalSection m_section;
};
