#include "bench/Contestant.h"

#include <caf/all.hpp>

#include <unordered_map>

CAF_ALLOW_UNSAFE_MESSAGE_TYPE(bench::Request) // stays in the process

namespace bench {

class Config : public caf::actor_system_config {
public:
    explicit Config(int threads) {
        set("scheduler.max-threads", static_cast<std::size_t>(threads));
    }
};

class CafPeer : public Peer {
public:
    explicit CafPeer(int threads) : m_config(threads), m_system(m_config) {}

    void post(const std::string& source, Request request) override {
        auto found = m_actors.find(source);
        if (found == m_actors.end()) {
            const auto actor = m_system.spawn(
                []() -> caf::behavior { return {[](Request& posted) { posted.run(); }}; });
            found = m_actors.emplace(source, actor).first;
        }
        caf::anon_send(found->second, std::move(request));
    }

private:
    Config m_config;
    caf::actor_system m_system; ///< waits for the actors, which end when nobody refers to them
    std::unordered_map<std::string, caf::actor> m_actors;
};

std::unique_ptr<Peer> makeCafPeer(int threads) { return std::make_unique<CafPeer>(threads); }

} // namespace bench
