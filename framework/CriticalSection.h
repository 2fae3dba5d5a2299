#pragma once

#include "framework/Opaque.h"

class Semaphore;

/// Holds one unit of a semaphore for the length of a scope. Ends on the thread that it began on.
///
/// Inside, `Semaphore::give` makes its unit available at once but may leave a sleeping waiter
/// asleep for a little longer: until the thread has left its outermost section, or waits for
/// something in the framework. So after a give inside do not wait by other means, such as a mutex
/// or a condition variable of your own.
class CriticalSection {
public:
    /// Takes the semaphore, waiting without limit.
    explicit CriticalSection(Semaphore& semaphore);

    /// Gives it back.
    ~CriticalSection();

    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

private:
    Opaque<sizeof(void*)> m_opaque;
};
