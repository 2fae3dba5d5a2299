#include "testkit/NatsCluster.h"

#include "channels/nats/wire/NatsConnection.h"

#include <condition_variable>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace mirel {

namespace {

constexpr std::chrono::seconds kPatience{30};
constexpr std::chrono::seconds kCallPatience{2};
constexpr std::chrono::milliseconds kBetweenAttempts{100};

std::unique_ptr<NatsConnection> connect(const std::string& url) {
    NatsConnectionOptions options;
    options.url = url;
    options.patience = kPatience;
    return std::make_unique<NatsConnection>(options);
}

} // namespace

NatsCluster::NatsCluster(const std::string& folder, std::size_t size) : m_routes(size) {
    std::string routes;
    for (const Port& port : m_routes)
        routes +=
            (routes.empty() ? "\"nats-route://" : ", \"nats-route://") + port.hostAndPort() + '"';
    for (const Port& port : m_routes) {
        std::string cluster;
        if (size > 1)
            cluster = "cluster { name: C, no_advertise: true, listen: \"" + port.hostAndPort() +
                      "\", routes: [" + routes + "] }\n";
        const std::string name = "node" + std::to_string(m_servers.size() + 1);
        m_servers.push_back(std::make_unique<NatsServer>(folder + "/" + name, cluster));
    }
}

void NatsCluster::waitUntilReady() const {
    const auto connection = connect(url());
    const nlohmann::json trial{
        {"name", "trial"}, {"subjects", {"trial"}}, {"num_replicas", m_servers.size()}};
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    std::mutex mutex;
    std::condition_variable never; // nothing tells when it is ready
    for (std::unique_lock lock(mutex);; never.wait_for(lock, kBetweenAttempts)) {
        try {
            connection->call("STREAM.CREATE.trial", trial, kCallPatience);
            connection->call("STREAM.DELETE.trial", nullptr, kCallPatience);
            return;
        } catch (const NatsError&) {
            if (std::chrono::steady_clock::now() >= deadline)
                throw;
        }
    }
}

std::string NatsCluster::url(const std::string& service) const {
    std::string servers;
    for (const auto& server : m_servers)
        servers += (servers.empty() ? "" : ",") + server->hostAndPort();
    return "nats://" + servers + "/" + service;
}

NatsServer& NatsCluster::streamLeader(const std::string& service) {
    return leaderIn(ask("STREAM.INFO." + service));
}

NatsServer& NatsCluster::consumerLeader(const std::string& service) {
    const nlohmann::json names = ask("CONSUMER.NAMES." + service);
    return leaderIn(
        ask("CONSUMER.INFO." + service + "." + names.at("consumers").at(0).get<std::string>()));
}

NatsServer& NatsCluster::follower() {
    const NatsServer* const leaders[] = {&streamLeader(), &consumerLeader()};
    for (const auto& server : m_servers)
        if (server.get() != leaders[0] && server.get() != leaders[1])
            return *server;
    throw std::logic_error("all servers are leaders");
}

nlohmann::json NatsCluster::ask(const std::string& name) const {
    return connect(url())->call(name, nullptr, kPatience);
}

NatsServer& NatsCluster::leaderIn(const nlohmann::json& information) {
    const std::string name = information.at("cluster").at("leader");
    for (const auto& server : m_servers)
        if (server->name() == name)
            return *server;
    throw std::logic_error("there is no server " + name);
}

} // namespace mirel
