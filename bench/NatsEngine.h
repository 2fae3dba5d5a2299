#pragma once

#include "bench/PrivateFolder.h"

#include <memory>
#include <string>
#include <vector>

namespace bench {

/// One NATS server, or several that form a cluster, on this machine and with empty stores. They end
/// with the object, and with the thread that has made it.
class NatsEngine {
public:
    /// Returns when streams with as many copies as servers can be made. `MirelException` when that
    /// takes too long, `std::system_error` when a server cannot be started.
    explicit NatsEngine(int servers);
    ~NatsEngine();

    std::string url(const std::string& service) const;

private:
    class Server;

    const PrivateFolder m_folder;
    std::string m_hosts;
    std::vector<std::unique_ptr<Server>> m_servers;
};

} // namespace bench
