#pragma once

#include "framework/MirelThreadPriority.h"

class ServiceThreadIfc;

/// The source of service threads. Any thread may call; an implementation serialises the calls
/// itself. A pool is destroyed by its creator through its own class, never through this one.
class __attribute__((visibility("default"))) ServiceThreadPoolIfc {
public:
    /// Number of idle workers of `priority`. `std::out_of_range` unless that is 0, 1 or 2.
    virtual int availableThreads(MirelThreadPriority priority) = 0;

    /// With `multiThreaded` false: a new inline thread; the priority is not looked at. With true: a
    /// worker of that priority that waits for work; it may not have begun to run, and work handed
    /// to it waits for it. Never waits for a thread to become free, never returns null.
    ///
    /// Throws `std::out_of_range` for a worker of another priority than 0, 1 or 2, and what the
    /// framework throws when a thread cannot be started; nothing has changed then.
    virtual ServiceThreadIfc* getThread(MirelThreadPriority priority, bool multiThreaded) = 0;

    /// Called by a worker on its own OS thread when it has no more work: it becomes idle, or, when
    /// it is not reusable, ends. Always true.
    virtual bool returnThread(ServiceThreadIfc* thread) = 0;

protected:
    ~ServiceThreadPoolIfc() = default;
};
