#include "bench/Contestant.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

namespace bench {

class ThreadPerSourcePeer : public Peer {
public:
    explicit ThreadPerSourcePeer(int threads) {
        for (int i = 0; i < threads; ++i)
            m_threads.emplace_back([this] { work(); });
    }

    ~ThreadPerSourcePeer() override {
        {
            const std::lock_guard lock(m_mutex);
            m_stopping = true;
        }
        m_changed.notify_all();
    }

    void post(const std::string& name, Request request) override {
        bool wake = false;
        {
            const std::lock_guard lock(m_mutex);
            Source& source = m_sources[name];
            source.requests.push_back(std::move(request));
            if (!source.busy) {
                source.busy = true;
                m_ready.push_back(&source);
                wake = true;
            }
        }
        if (wake)
            m_changed.notify_one();
    }

private:
    struct Source {
        std::deque<Request> requests;
        bool busy = false; ///< in m_ready, or served by a thread
    };

    void work() {
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_changed.wait(lock, [this] { return m_stopping || !m_ready.empty(); });
            if (m_ready.empty())
                return;
            Source& source = *m_ready.front();
            m_ready.pop_front();
            // As many as there are: the thread is here already.
            while (!source.requests.empty()) {
                Request request = std::move(source.requests.front());
                source.requests.pop_front();
                lock.unlock();
                request.run();
                lock.lock();
            }
            source.busy = false;
        }
    }

    // Guarded by m_mutex.
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::unordered_map<std::string, Source> m_sources;
    std::deque<Source*> m_ready; ///< have requests, and no thread yet
    bool m_stopping = false;

    std::vector<std::jthread> m_threads; ///< last, so that they end first
};

std::unique_ptr<Peer> makeThreadPerSourcePeer(int threads) {
    return std::make_unique<ThreadPerSourcePeer>(threads);
}

} // namespace bench
