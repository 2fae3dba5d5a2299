#include "tests/system/ChannelFixture.h"

#include "channels/zmq/ZmqSecurity.h"
#include "runtime/reports/LogControl.h"

#include <fstream>

namespace mirel {
namespace {

class ZmqSecurityTest : public ChannelFixture {
protected:
    ZmqSecurityTest() {
        m_options.url = "tcp://127.0.0.1:0";
        for (const char* name : {"service", "friend", "stranger"})
            writeNewCurveKeys(m_folder.path(name));
        m_options.curveKeyFile = m_folder.path("service.key");
    }

    /// The failure of a caller with these keys, "none" when it is served.
    std::string call(const std::string& serverKey, const std::string& ownKey = "",
                     std::chrono::milliseconds patience = kPatience) {
        ZmqCallerOptions options;
        options.url = m_channel->url();
        options.patience = patience;
        options.serverKeyFile = serverKey.empty() ? "" : m_folder.path(serverKey);
        options.curveKeyFile = ownKey.empty() ? "" : m_folder.path(ownKey);
        return failureOf([&] {
            ZmqCaller caller(options);
            expectService(caller, 1);
        });
    }

    void expectRefused(const std::string& serverKey, const std::string& ownKey = "",
                       const std::string& why = "refuses the connection") {
        // Long enough for a connection that is not refused at once.
        EXPECT_TRUE(contains(call(serverKey, ownKey, std::chrono::milliseconds(700)), why));
    }
};

TEST_F(ZmqSecurityTest, CurveServesWhoKnowsTheServiceAndNobodyElse) {
    open();
    EXPECT_EQ(call("service.pub"), "none");
    EXPECT_EQ(call("service.pub", "stranger.key"), "none");
    expectRefused("");
    expectRefused("stranger.pub");
    EXPECT_EQ(m_channel->counters()->received, 2U);
}

TEST_F(ZmqSecurityTest, AListOfCallersLetsInThoseOnly) {
    std::ofstream(m_folder.path("allowed"))
        << readPublicKey(m_folder.path("friend.pub")) << " a friend\n\n";
    m_options.allowedCallersFile = m_folder.path("allowed");
    open();
    std::string logged;
    LogSink former = setLogSink([&](const LogLine& line) { logged += line.text; });
    EXPECT_EQ(call("service.pub", "friend.key"), "none");
    expectRefused("service.pub", "stranger.key", "does not let this caller's key in");
    setLogSink(std::move(former)); // returns when nobody is in it any more
    EXPECT_TRUE(contains(logged, ": 1 refused, the last one because its public key, " +
                                     readPublicKey(m_folder.path("stranger.pub")) +
                                     ", is not one of the allowed callers', at 127.0.0.1"));
    expectRefused("service.pub", "", "does not let this caller's key in");
    expectRefused("");
    EXPECT_EQ(call("service.pub", "friend.key"), "none");
}

TEST_F(ZmqSecurityTest, CurveMayListenBeyondLoopback) {
    m_options.url = "tcp://0.0.0.0:0";
    open(); // reached by nobody here
}

TEST_F(ZmqSecurityTest, KeysAreNotPassedOverWithoutCurve) {
    m_options.curveKeyFile.clear();
    open();
    expectRefused("service.pub");
    m_options.allowedCallersFile = m_folder.path("friend.pub");
    EXPECT_TRUE(contains(failureOf([this] { open(); }), "needs CURVE"));
}

TEST_F(ZmqSecurityTest, KeysAreWrittenPrivatelyAndNeverReplaced) {
    EXPECT_EQ(fs::status(m_folder.path("service.key")).permissions(), fs::perms(0600));
    const CurveKeys before = readCurveKeys(m_folder.path("service.key"));
    EXPECT_EQ(before.publicKey, readPublicKey(m_folder.path("service.pub")));
    EXPECT_ANY_THROW(writeNewCurveKeys(m_folder.path("service")));
    EXPECT_EQ(before.secretKey, readCurveKeys(m_folder.path("service.key")).secretKey);
}

TEST_F(ZmqSecurityTest, RefusesABadKeyFileWithAReason) {
    const std::string key = "JTKVSB%%)wK0E.X)V>+}o?pNmC{O&4W4b!Ni{Lh6\n";
    const std::tuple<std::string, fs::perms, const char*> bad[] = {
        {key, fs::perms(0640), "chmod 600"},
        {"", fs::perms(0600), "0 keys"},
        {key.substr(1), fs::perms(0600), "40 characters"},
        {"\"" + key.substr(1), fs::perms(0600), "40 characters"},
    };
    const std::string file = m_folder.path("bad.key");
    for (const auto& [content, mode, why] : bad) {
        std::ofstream(file) << content;
        fs::permissions(file, mode);
        const std::string failure = failureOf([&] { readCurveKeys(file); });
        EXPECT_TRUE(contains(failure, "key file " + file + ": "));
        EXPECT_TRUE(contains(failure, why));
    }
}

} // namespace
} // namespace mirel
