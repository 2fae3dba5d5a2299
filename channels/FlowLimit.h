#pragma once

#include "runtime/threads/Mutex.h"

#include <atomic>
#include <condition_variable>

namespace mirel {

/// Bounds what is under way: the requests that were accepted and not answered yet, and the workers
/// in use. While either is at its limit, the channels that share it deliver nothing, and make their
/// callers wait. Without it a multi-threaded executor would read and hold back without end.
///
/// A limit is passed by what was delivered already: by one message for each channel.
///
/// Any thread may call.
class FlowLimit {
public:
    static constexpr unsigned long kDefault = 1000;

    /// Each at least 1.
    explicit FlowLimit(unsigned long unanswered = kDefault, unsigned long workers = kDefault);

    /// Waits until neither is at its limit, or until `closed`, whose change is to be followed by
    /// `wakeAll`.
    void waitForRoom(const std::atomic<bool>& closed);
    void wakeAll();

    void requestAccepted() noexcept;
    void requestDone();

    void workerTaken();
    void workerReturned();

    /// That were in use at once so far.
    unsigned long mostWorkers() const;

private:
    bool hasRoom() const;
    void decrease(std::atomic<unsigned long>& count, unsigned long limit);

    const unsigned long m_unansweredLimit;
    const unsigned long m_workerLimit;

    // Who lowers one of these from its limit, or from above, takes the lock afterwards and wakes
    // who waits. Who waits has looked at them with the lock held, so it has either seen the lower
    // count or waits already, and is woken. That needs one order of all changes and looks: the
    // default one.
    std::atomic<unsigned long> m_unanswered{0};
    std::atomic<unsigned long> m_workers{0};

    std::atomic<unsigned long> m_mostWorkers{0};

    Mutex m_mutex;
    std::condition_variable m_room;
};

} // namespace mirel
