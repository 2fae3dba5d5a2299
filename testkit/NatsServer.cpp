#include "testkit/NatsServer.h"

#include "testkit/waitForLines.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace mirel {

namespace fs = std::filesystem;

NatsServer::NatsServer(const std::string& folder, const std::string& more)
    : m_folder(folder),
      m_name(fs::path(folder).filename().string()) {
    fs::create_directories(folder);
    std::ofstream(path("conf")) << "server_name: " << m_name << "\nlisten: \"" << hostAndPort()
                                << "\"\nlog_file: \"" << path("log")
                                << "\"\njetstream { store_dir: \"" << path("store") << "\" }\n"
                                << more;
    start();
}

void NatsServer::start() {
    m_process.emplace(Arguments{MIREL_NATS_SERVER, "-c", path("conf")});
    if (!waitForLines(path("log"), ++m_starts, "Server is ready"))
        throw std::runtime_error(m_name + " does not listen");
}

void NatsServer::keepStore() {
    fs::remove_all(path("kept"));
    fs::copy(path("store"), path("kept"), fs::copy_options::recursive);
}

void NatsServer::bringBackStore() {
    fs::remove_all(path("store"));
    fs::rename(path("kept"), path("store"));
}

std::string NatsServer::url(const std::string& service) const {
    return "nats://" + hostAndPort() + "/" + service;
}

} // namespace mirel
