#pragma once

#include "channels/nats/wire/NatsConnection.h"
#include "tests/system/nats/NatsServer.h"

#include <nlohmann/json.hpp>

namespace mirel {

/// Three servers that know each other.
class NatsCluster {
public:
    NatsCluster() {
        const std::array<int, 3> routes{freePort(), freePort(), freePort()};
        std::string all;
        for (const int port : routes)
            all += (all.empty() ? "" : ", ") + ("nats-route://127.0.0.1:" + std::to_string(port));
        for (std::size_t i = 0; i < routes.size(); ++i)
            m_servers.push_back(std::make_unique<NatsServer>(
                "cluster { name: C, no_advertise: true, listen: \"127.0.0.1:" +
                    std::to_string(routes.at(i)) + "\", routes: [" + all + " ] }\n",
                "n" + std::to_string(i + 1)));
    }

    std::string url() const {
        std::string servers;
        for (const auto& server : m_servers)
            servers += (servers.empty() ? "" : ",") + server->hostAndPort();
        return "nats://" + servers + "/service";
    }

    NatsServer& streamLeader() { return named(asked("STREAM.INFO.service")); }

    /// Of the only partition.
    NatsServer& consumerLeader() {
        const auto names = connection()->call("CONSUMER.NAMES.service", nullptr, kPatience);
        return named(
            asked("CONSUMER.INFO.service." + names.at("consumers").at(0).get<std::string>()));
    }

    /// One that leads neither.
    NatsServer& follower() {
        const NatsServer* const leaders[] = {&streamLeader(), &consumerLeader()};
        for (const auto& server : m_servers)
            if (server.get() != leaders[0] && server.get() != leaders[1])
                return *server;
        throw std::logic_error("three servers have two leaders");
    }

private:
    std::unique_ptr<NatsConnection> connection() const {
        NatsConnectionOptions options;
        options.url = url();
        return std::make_unique<NatsConnection>(options);
    }

    std::string asked(const std::string& name) const {
        return connection()->call(name, nullptr, kPatience).at("cluster").at("leader");
    }

    NatsServer& named(const std::string& name) {
        for (const auto& server : m_servers)
            if (server->name() == name)
                return *server;
        throw std::logic_error("there is no server " + name);
    }

    std::vector<std::unique_ptr<NatsServer>> m_servers;
};

} // namespace mirel
