#pragma once

#include "framework/Threadable.h"
#include "runtime/threads/Mutex.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>

namespace mirel {

/// What a channel tells about its requests, on its way to the server: acknowledgements and answers.
/// A thread of its own sends them in the order in which they were added. So nobody else waits for a
/// server that is stopped, whatever locks he holds: workers and the executor take no lock of the
/// NATS library.
///
/// Why the order is right: the ledger adds the acknowledgements of a subject under its lock, in
/// their order. A request's answer is added before its acknowledgement, by the same thread. Answers
/// of a source are added in the order in which they are given.
class NatsOutbox : public Threadable {
public:
    struct Item {
        std::string to;
        std::string bytes;
        std::string replyTo; ///< empty: none
    };

    /// Starts the thread. `send` is called by it only, without a lock, and may wait for the
    /// network.
    explicit NatsOutbox(std::function<void(const Item&)> send);

    /// Sends what has been added.
    ~NatsOutbox() override;

    // Any thread, which does not wait, under any lock.

    /// The thread sends it in its turn.
    void add(Item item);

    /// Not before something is added after it, or `send` is called: the thread is woken once for
    /// what belongs together.
    void put(Item item);
    void send();

    /// Waits until all that has been added so far has been sent; false when that takes too long.
    bool waitUntilSent(std::chrono::milliseconds patience);

    void run() override;
    MirelThreadPriority getThreadPriorityForPlatform() override;
    std::string type() override;

private:
    void stop();

    const std::function<void(const Item&)> m_send;

    Mutex m_mutex;
    std::condition_variable m_added;
    std::condition_variable m_sent;
    std::deque<Item> m_items MIREL_GUARDED_BY(m_mutex);
    std::uint64_t m_addedSoFar MIREL_GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_sentSoFar MIREL_GUARDED_BY(m_mutex) = 0;
    /// The thread has been told to look, and has not looked yet.
    bool m_woken MIREL_GUARDED_BY(m_mutex) = false;
    bool m_stop MIREL_GUARDED_BY(m_mutex) = false;
};

} // namespace mirel
