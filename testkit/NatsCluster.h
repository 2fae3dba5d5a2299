#pragma once

#include "testkit/NatsServer.h"

#include <chrono>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace mirel {

/// Servers that know each other; one alone is no cluster to itself.
class NatsCluster {
public:
    /// Starts them; see NatsServer. They are called node1 and so on.
    explicit NatsCluster(const std::string& folder, std::size_t size = 3);

    /// Waits until streams can be made with a copy on each server. `NatsError` after half a minute.
    void waitUntilReady() const;

    std::string url(const std::string& service = "service") const;

    // Of a service with one stream, in which the second looks at the only partition.
    NatsServer& streamLeader(const std::string& service = "service");
    NatsServer& consumerLeader(const std::string& service = "service");

    /// One that is neither.
    NatsServer& follower();

private:
    nlohmann::json ask(const std::string& name) const;
    NatsServer& leaderIn(const nlohmann::json& information);

    const std::vector<Port> m_routes;
    std::vector<std::unique_ptr<NatsServer>> m_servers;
};

} // namespace mirel
