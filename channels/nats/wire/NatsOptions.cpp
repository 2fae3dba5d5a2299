#include "channels/nats/wire/NatsOptions.h"

#include "channels/nats/wire/NatsAddress.h"
#include "channels/nats/wire/NatsConnectionOptions.h"
#include "framework/MirelException.h"

#include <fstream>
#include <iterator>
#include <vector>

namespace mirel {

namespace {

[[noreturn]] void fail(const std::string& text) { throw MirelException(text, __FILE__, __LINE__); }

void require(natsStatus status, const std::string& what) {
    if (status != NATS_OK)
        fail(what + ": " + reasonOf(status));
}

std::string firstLine(const std::string& file) {
    std::ifstream in(file);
    std::string line;
    if (!std::getline(in, line))
        fail(file + ": the password cannot be read");
    return line;
}

void authenticate(natsOptions* options, const NatsConnectionOptions& wanted) {
    const bool hasPassword = !wanted.passwordFile.empty();
    if (wanted.user.empty()
            ? hasPassword
            : !hasPassword && wanted.credentialsFile.empty() && wanted.certificateFile.empty())
        fail("a user needs a password file, credentials or a certificate, and a password its user");
    if (hasPassword)
        require(natsOptions_SetUserInfo(options, wanted.user.c_str(),
                                        firstLine(wanted.passwordFile).c_str()),
                "the user");
    if (!wanted.credentialsFile.empty())
        require(natsOptions_SetUserCredentialsFromFiles(options, wanted.credentialsFile.c_str(),
                                                        nullptr),
                wanted.credentialsFile);
}

void encrypt(natsOptions* options, const NatsConnectionOptions& wanted, bool encrypted) {
    if (!encrypted) {
        if (!wanted.authoritiesFile.empty() || !wanted.certificateFile.empty())
            fail("certificates need an address that begins with tls://");
        return;
    }
    require(natsOptions_SetSecure(options, true), "TLS");
    if (!wanted.authoritiesFile.empty())
        require(natsOptions_LoadCATrustedCertificates(options, wanted.authoritiesFile.c_str()),
                wanted.authoritiesFile);
    if (wanted.certificateFile.empty() != wanted.keyFile.empty())
        fail("a certificate needs its key, and the other way round");
    if (!wanted.certificateFile.empty())
        require(natsOptions_LoadCertificatesChain(options, wanted.certificateFile.c_str(),
                                                  wanted.keyFile.c_str()),
                wanted.certificateFile);
}

} // namespace

NatsOptions newNatsOptions(const NatsAddress& address, const NatsConnectionOptions& wanted) {
    natsOptions* made = nullptr;
    require(natsOptions_Create(&made), "NATS");
    NatsOptions options(made);
    std::vector<const char*> servers;
    for (const std::string& server : address.servers())
        servers.push_back(server.c_str());
    require(natsOptions_SetServers(made, servers.data(), static_cast<int>(servers.size())),
            address.url());
    authenticate(made, wanted);
    encrypt(made, wanted, address.encrypted());
    return options;
}

std::string secretOf(const NatsConnectionOptions& wanted) {
    if (!wanted.passwordFile.empty())
        return firstLine(wanted.passwordFile);
    const std::string& file =
        wanted.credentialsFile.empty() ? wanted.keyFile : wanted.credentialsFile;
    if (file.empty())
        return {};
    std::ifstream in(file);
    const std::string secret{std::istreambuf_iterator<char>(in), {}};
    if (secret.empty())
        fail(file + ": it cannot be read");
    return secret;
}

} // namespace mirel
