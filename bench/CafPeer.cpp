#include "bench/Peer.h"
#include "bench/Peers.h"

#include <caf/all.hpp>

#include <unordered_map>

CAF_ALLOW_UNSAFE_MESSAGE_TYPE(bench::Request) // stays in the process

namespace bench {

namespace {

class Config : public caf::actor_system_config {
public:
    explicit Config(int threads) {
        set("scheduler.max-threads", static_cast<std::size_t>(threads));
    }
};

class CafPeer : public Peer {
public:
    CafPeer(std::unique_ptr<CommsChannelIfc> channel, Workload& workload, int threads)
        : Peer(std::move(channel), workload),
          m_config(threads),
          m_system(m_config) {
        startReading();
    }

    ~CafPeer() override {
        stopReading();
        // The actors end when nobody refers to them, and the system waits for them.
        m_actors.clear();
    }

private:
    void post(const std::string& source, Request request) override {
        auto found = m_actors.find(source);
        if (found == m_actors.end()) {
            const auto actor = m_system.spawn(
                []() -> caf::behavior { return {[](Request& posted) { posted.run(); }}; });
            found = m_actors.emplace(source, actor).first;
        }
        caf::anon_send(found->second, std::move(request));
    }

    Config m_config;
    caf::actor_system m_system;
    std::unordered_map<std::string, caf::actor> m_actors; ///< the reading thread's
};

} // namespace

std::unique_ptr<Contestant> startCaf(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
                                     int threads) {
    return std::make_unique<CafPeer>(std::move(channel), workload, threads);
}

} // namespace bench
