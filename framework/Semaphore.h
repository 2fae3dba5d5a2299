#pragma once

#include "framework/Opaque.h"

/// Counting semaphore with a maximum. Any thread may take or give.
///
/// May be destroyed as soon as the last `take` has returned, although the `give` that satisfied
/// it may still be on its way out: `give` touches nothing of the object after it has added its
/// unit. A worker relies on that: it deletes itself, and with it the semaphore that woke it.
class Semaphore {
public:
    /// Initial count of a semaphore that is taken until someone gives it.
    static const int NOT_AVAILABLE;

    /// `initial` units are free, at most `maximum` ever are. The flag is not used.
    /// Range: 0 <= initial <= maximum, 1 <= maximum <= 65535; `MirelException` otherwise.
    Semaphore(int initial, int maximum, bool);
    virtual ~Semaphore();

    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    /// Takes one unit, waiting at most `timeout` milliseconds for it; without limit when `timeout`
    /// is -1. False when the time ran out.
    virtual bool take(int timeout);

    /// Adds one unit, unless the maximum is free already, and wakes one waiter.
    virtual void give();

private:
    friend class CriticalSection;

    Opaque<16> m_opaque;
};
