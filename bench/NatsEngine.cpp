#include "bench/NatsEngine.h"

#include "channels/nats/wire/NatsConnection.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <fstream>
#include <mutex>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace bench {

namespace {

constexpr std::chrono::seconds kPatience{30};
constexpr std::chrono::seconds kCallPatience{2};
constexpr std::chrono::milliseconds kBetweenAttempts{100};

constexpr const char* kHost = "127.0.0.1:";

/// A socket on a port that nobody else uses.
class Port {
public:
    Port() : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        if (bind(m_socket, any, size) != 0 || getsockname(m_socket, any, &size) != 0)
            throw std::system_error(errno, std::generic_category(), "a free port");
        m_number = ntohs(address.sin_port);
    }
    ~Port() { close(m_socket); }

    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    std::string address() const { return kHost + std::to_string(m_number); }

private:
    const int m_socket;
    int m_number = 0;
};

std::string quoted(const std::string& text) { return '"' + text + '"'; }

/// While a cluster is coming together it makes no stream, or none with so many copies.
void waitUntilReady(const std::string& url, int servers) {
    mirel::NatsConnectionOptions options;
    options.url = url;
    options.patience = kPatience;
    mirel::NatsConnection connection(options);
    const nlohmann::json trial{
        {"name", "trial"}, {"subjects", {"trial"}}, {"num_replicas", servers}};
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    std::mutex mutex;
    std::condition_variable never; // nothing tells when it is ready
    for (std::unique_lock lock(mutex);; never.wait_for(lock, kBetweenAttempts)) {
        try {
            connection.call("STREAM.CREATE.trial", trial, kCallPatience);
            connection.call("STREAM.DELETE.trial", nullptr, kCallPatience);
            return;
        } catch (const mirel::NatsError&) {
            if (std::chrono::steady_clock::now() >= deadline)
                throw;
        }
    }
}

} // namespace

class NatsEngine::Server {
public:
    explicit Server(const std::string& configuration) {
        m_process = fork();
        if (m_process < 0)
            throw std::system_error(errno, std::generic_category(), "fork");
        if (m_process > 0)
            return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execl(BENCH_NATS_SERVER, BENCH_NATS_SERVER, "-c", configuration.c_str(), nullptr);
        _exit(127);
    }
    ~Server() {
        kill(m_process, SIGKILL); // nobody needs its store any more
        waitpid(m_process, nullptr, 0);
    }

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

private:
    pid_t m_process;
};

NatsEngine::NatsEngine(int servers) {
    std::vector<std::string> configurations;
    {
        // All ports at once, so that they differ.
        const std::vector<Port> clients(static_cast<std::size_t>(servers));
        const std::vector<Port> peers(static_cast<std::size_t>(servers));
        std::string routes;
        for (const Port& peer : peers)
            routes += (routes.empty() ? "" : ", ") + quoted("nats://" + peer.address());
        for (std::size_t i = 0; i < clients.size(); ++i) {
            const std::string name = "server-" + std::to_string(i);
            const std::string path = m_folder.path() + "/" + name;
            std::ofstream file(configurations.emplace_back(path + ".conf"));
            file << "server_name: " << name << "\nlisten: " << quoted(clients[i].address())
                 << "\nlog_file: " << quoted(path + ".log")
                 << "\njetstream { store_dir: " << quoted(path) << " }\n";
            if (servers > 1)
                file << "cluster { name: bench, listen: " << quoted(peers[i].address())
                     << ", routes: [" << routes << "] }\n";
            m_hosts += (i == 0 ? "" : ",") + clients[i].address();
        }
    }
    for (const std::string& configuration : configurations)
        m_servers.push_back(std::make_unique<Server>(configuration));
    waitUntilReady(url("trial"), servers);
}

NatsEngine::~NatsEngine() = default;

std::string NatsEngine::url(const std::string& service) const {
    return "nats://" + m_hosts + "/" + service;
}

} // namespace bench
