#pragma once

#include <condition_variable>
#include <mutex>

namespace mirel {

/// Bounds what a host has under way: the requests that were accepted and not answered yet, and the
/// workers in use. While either is at the limit, no message is read, and the channel makes the
/// callers wait. Without it a multi-threaded executor would read and hold back without end.
/// Any thread may call.
class FlowLimit {
public:
    explicit FlowLimit(unsigned long limit);

    /// Waits until neither is at the limit. False once closed.
    bool waitForRoom();
    void close();

    void requestAccepted();
    void requestAnswered();
    void workerTaken();
    void workerReturned();

    unsigned long mostWorkers() const;

private:
    bool hasRoom() const;

    const unsigned long m_limit;

    // Guarded by m_mutex.
    mutable std::mutex m_mutex;
    std::condition_variable m_room;
    unsigned long m_unanswered = 0;
    unsigned long m_workers = 0;
    unsigned long m_mostWorkers = 0;
    bool m_closed = false;
};

} // namespace mirel
