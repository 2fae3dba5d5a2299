#pragma once

#include "runtime/threads/ThreadKeeper.h"
#include "runtime/threads/ThreadOptions.h"
#include "runtime/threads/ThreadSettings.h"

#include <cfenv>
#include <memory>
#include <optional>
#include <pthread.h>
#include <string>

class Threadable;

namespace mirel {

class ThreadRecord;
class ThreadStarter;

/// What an OS thread is to do: run one object.
struct ThreadWork {
    std::shared_ptr<ThreadRecord> record;
    unsigned long start;    ///< its number in the record
    Threadable* threadable; ///< not to be touched after `run`
    std::string name;
};

/// An OS thread that runs one object after the other, and rests in between. Owned by itself: it is
/// gone when there is nothing more to do, or when an object's code ends it.
///
/// An object finds the scheduling, signal mask, processors, cancellation state, name and
/// floating-point environment of a new OS thread, whoever was there before: when an object leaves
/// another scheduling, signal mask or set of processors than it had, or a cancellation that is
/// still to come, the OS thread ends with it.
class OsThread : public ThreadKeeper::Kept {
public:
    /// One that has no work yet: a kept one, or a new one. Asks a system that refuses again until
    /// the patience is over; `ThreadRefused` then, with `name` in its text. `priority` is 0 to 2.
    static OsThread& get(const VersionedThreadOptions& options, int priority,
                         const std::string& name);

    ~OsThread();
    OsThread(const OsThread&) = delete;
    OsThread& operator=(const OsThread&) = delete;

    pthread_t id() const { return m_id; }

    /// Gives it work. Nothing of it is touched after that.
    void begin(ThreadWork work);

private:
    OsThread(const VersionedThreadOptions& options, int priority);

    static OsThread* takeKept(const VersionedThreadOptions& options, int priority);
    bool suitsThisStarter() const;
    int start();

    static void* main(void* self);
    bool runOne();
    void becomeNew();
    void becomeLikeNew();
    bool mayBeKept() const;

    const VersionedThreadOptions m_options;
    const int m_priority;
    const std::unique_ptr<ThreadStarter> m_starter; ///< null if nice values are left alone
    /// What the options leave alone, the thread has from its maker; none: they leave nothing.
    const std::optional<ThreadScheduling> m_makers;
    pthread_t m_id{}; ///< does not change when it has been started

    // Written by who has got the thread, before the wake-up, and then the OS thread's.
    ThreadWork m_work{};
    ThreadSurroundings m_starters;
    std::fenv_t m_startersFloatingPoint{};

    // The OS thread only.
    bool m_isNew = true;
    std::optional<ThreadSurroundings> m_surroundings; ///< none: it cannot be kept
    ThreadScheduling m_scheduling;
};

} // namespace mirel
