#include "testkit/NatsServer.h"
#include "tests/system/nats/HostsFixture.h"

#include <sstream>

namespace mirel {
namespace {

/// Who is let in, and what the others are told.
class NatsAccessTest : public HostsFixture {
protected:
    /// A host is let in with the arguments, and so is a caller.
    void expectLetIn(const std::string& url, const Arguments& access) const {
        const auto host = newHost(url, access);
        expectGood(newCall(url, joined({"--data", "source 1"}, access))->finish());
    }

    void expectRefused(const std::string& url, const Arguments& access, const char* says) const {
        const auto result =
            Process::run(joined({MIREL_CALL, "--kind", "legacy", "--channel", url}, access));
        EXPECT_EQ(result.status, 2) << says;
        EXPECT_TRUE(contains(result.errors, says));
    }
};

TEST_F(NatsAccessTest, LetsInByCredentials) {
    const std::string folder = CREDENTIALS_FOLDER;
    std::ostringstream accounts;
    accounts << std::ifstream(folder + "/operator.conf").rdbuf();
    const NatsServer server(m_folder.path("server"), accounts.str());
    expectLetIn(server.url(), {"--credentials", folder + "/user.creds"});
    expectLetIn(server.url(), {"--credentials", folder + "/user.creds", "--user", "host"});
    expectRefused(server.url(), {}, "does not let us in");
    expectRefused(server.url(), {"--credentials", folder + "/none"}, "none");
}

TEST_F(NatsAccessTest, LetsInByCertificates) {
    const std::string key = m_folder.path("key"), certificate = m_folder.path("certificate");
    expectGood(Process::run({OPENSSL, "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                             "-subj", "/CN=test", "-addext", "subjectAltName=IP:127.0.0.1",
                             "-keyout", key, "-out", certificate}));
    const NatsServer server(m_folder.path("server"),
                            "tls { cert_file: \"" + certificate + "\", key_file: \"" + key +
                                "\", ca_file: \"" + certificate + "\", verify: true }\n");
    const std::string url = "tls://" + server.hostAndPort() + "/service";
    expectLetIn(url, {"--tls-authorities", certificate, "--tls-certificate", certificate,
                      "--tls-key", key});
    expectRefused(url, {"--tls-authorities", certificate}, "may ask for a certificate");
    expectRefused(url, {"--tls-certificate", certificate, "--tls-key", key},
                  "self-signed certificate");
}

TEST_F(NatsAccessTest, AHostCanBeStoppedWhileItLooksForItsServer) {
    const Port nobody;
    Process host({MIREL_HOST, "--library", RECORDING_LIBRARY, "--creator", "makeRecordingService",
                  "--interface", "Recording", "--patience", "60000", "--channel",
                  "nats://" + nobody.hostAndPort() + "/service"});
    ASSERT_TRUE(host.waitFor("looking for"));
    const auto result = host.stop();
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(contains(result.errors, "told to stop"));
}

TEST_F(NatsAccessTest, SaysWhyThereIsNoService) {
    const std::string wrong = m_folder.path("wrong"), right = m_folder.path("right");
    std::ofstream(wrong) << "wrong\n";
    std::ofstream(right) << "right\n";
    const NatsServer server(
        m_folder.path("server"),
        "authorization { users: [ { user: \"service\", password: \"right\" } ] }");
    const Port nobody;
    expectRefused("nats://" + nobody.hostAndPort() + "/service", {"--deadline", "300"},
                  "no NATS server answers");
    expectRefused(server.url(), {}, "does not let us in");
    expectRefused(server.url(), {"--user", "service", "--password-file", wrong},
                  "does not let us in");
    expectRefused(server.url(), {"--user", "service"}, "a user needs a password file");
    expectRefused(server.url(),
                  {"--user", "service", "--password-file", right, "--deadline", "300"},
                  "no host has served it yet");
    expectRefused(server.url() + "/more", {}, "the service's name must have");
}

} // namespace
} // namespace mirel
