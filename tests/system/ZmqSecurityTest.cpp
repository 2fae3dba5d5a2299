#include "tests/system/ChannelFixture.h"

#include "framework/MirelException.h"
#include "standalone/ZmqSecurity.h"

#include <fstream>
#include <functional>
#include <sys/stat.h>

namespace mirel {
namespace {

template <typename Call>
std::string failureOf(Call call) {
    try {
        call();
        return "none";
    } catch (const MirelException& failure) {
        return failure.message();
    }
}

class ZmqSecurityTest : public ChannelFixture {
protected:
    ZmqSecurityTest() {
        m_options.url = "tcp://127.0.0.1:0";
        for (const char* name : {"service", "friend", "stranger"})
            writeNewCurveKeys(m_folder.path(name));
        m_options.curveKeyFile = m_folder.path("service.key");
    }

    /// The failure of a caller with these keys, "none" when it is served.
    std::string call(const std::string& serverKey, const std::string& ownKey,
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

    void expectRefused(const std::string& serverKey, const std::string& ownKey,
                       const std::string& why) {
        // Long enough for a connection that is not refused at once.
        const std::string failure = call(serverKey, ownKey, std::chrono::milliseconds(700));
        EXPECT_NE(failure.find(why), std::string::npos) << failure;
    }
};

TEST_F(ZmqSecurityTest, curveServesWhoKnowsTheServiceAndNobodyElse) {
    open();
    EXPECT_EQ(call("service.pub", ""), "none");
    EXPECT_EQ(call("service.pub", "stranger.key"), "none");
    expectRefused("", "", "refuses the connection");
    expectRefused("stranger.pub", "", "refuses the connection");
    EXPECT_EQ(m_channel->counters()->received, 2U);
}

TEST_F(ZmqSecurityTest, aListOfCallersLetsInThoseOnly) {
    std::ofstream(m_folder.path("allowed"))
        << readPublicKey(m_folder.path("friend.pub")) << " a friend\n\n";
    m_options.allowedCallersFile = m_folder.path("allowed");
    open();
    EXPECT_EQ(call("service.pub", "friend.key"), "none");
    expectRefused("service.pub", "stranger.key", "does not let this caller's key in");
    expectRefused("service.pub", "", "does not let this caller's key in");
    expectRefused("", "", "refuses the connection");
    EXPECT_EQ(call("service.pub", "friend.key"), "none");
}

TEST_F(ZmqSecurityTest, aCallerWithCurveIsNotServedInPlain) {
    m_options.curveKeyFile.clear();
    open();
    expectRefused("service.pub", "", "refuses the connection");
}

TEST_F(ZmqSecurityTest, curveMayListenBeyondLoopback) {
    m_options.url = "tcp://0.0.0.0:0";
    EXPECT_NO_THROW(open()); // reached by nobody here
}

TEST_F(ZmqSecurityTest, aListOfCallersNeedsCurve) {
    m_options.curveKeyFile.clear();
    m_options.allowedCallersFile = m_folder.path("friend.pub");
    EXPECT_NE(failureOf([this] { open(); }).find("needs CURVE"), std::string::npos);
}

TEST_F(ZmqSecurityTest, keysAreWrittenPrivatelyAndNeverReplaced) {
    struct stat status {};
    ASSERT_EQ(stat(m_folder.path("service.key").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    const CurveKeys before = readCurveKeys(m_folder.path("service.key"));
    EXPECT_EQ(before.publicKey, readPublicKey(m_folder.path("service.pub")));
    EXPECT_ANY_THROW(writeNewCurveKeys(m_folder.path("service")));
    EXPECT_EQ(before.secretKey, readCurveKeys(m_folder.path("service.key")).secretKey);
}

struct BadKeyFile {
    const char* name;
    const char* content; ///< null: there is no file
    mode_t mode;
    const char* says;

    friend void PrintTo(const BadKeyFile& value, std::ostream* out) { *out << value.name; }
};

class BadKeyFileTest : public testing::TestWithParam<BadKeyFile> {};

TEST_P(BadKeyFileTest, isRefusedWithAReason) {
    const TemporaryFolder folder;
    const std::string file = folder.path("test.key");
    if (GetParam().content) {
        std::ofstream(file) << GetParam().content;
        ASSERT_EQ(chmod(file.c_str(), GetParam().mode), 0);
    }
    const std::string failure = failureOf([&] { readCurveKeys(file); });
    EXPECT_NE(failure.find(file), std::string::npos) << failure;
    EXPECT_NE(failure.find(GetParam().says), std::string::npos) << failure;
}

constexpr const char* kSomeKey = "JTKVSB%%)wK0E.X)V>+}o?pNmC{O&4W4b!Ni{Lh6\n";

INSTANTIATE_TEST_SUITE_P(
    All, BadKeyFileTest,
    testing::Values(BadKeyFile{"missing", nullptr, 0, "No such file"},
                    BadKeyFile{"readableByTheGroup", kSomeKey, 0640, "chmod 600"},
                    BadKeyFile{"readableByOthers", kSomeKey, 0604, "chmod 600"},
                    BadKeyFile{"empty", "", 0600, "0 keys"},
                    BadKeyFile{"tooShort", "JTKVSB%%)wK0E.X)V>+}o?pNmC{O&4W4b!Ni{Lh\n", 0600,
                               "40 characters"},
                    BadKeyFile{"otherCharacters", "JTKVSB%%)wK0E.X)V>+}o?pNmC{O&4W4b!Ni{L\"\\\n",
                               0600, "40 characters"}),
    [](const auto& param) { return param.param.name; });

} // namespace
} // namespace mirel
