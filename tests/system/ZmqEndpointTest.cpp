#include "tests/system/ChannelFixture.h"

#include "framework/MirelException.h"

#include <fstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace mirel {
namespace {

std::string failureOf(const ZmqChannelOptions& options) {
    try {
        const ZmqChannel channel(options);
        return "none";
    } catch (const MirelException& failure) {
        return failure.message();
    }
}

struct BadAddress {
    const char* name;
    const char* url;
    const char* says;

    friend void PrintTo(const BadAddress& value, std::ostream* out) { *out << value.name; }
};

class ZmqBadAddressTest : public testing::TestWithParam<BadAddress> {};

TEST_P(ZmqBadAddressTest, isRefusedWithAReason) {
    ZmqChannelOptions options;
    options.url = GetParam().url;
    const std::string failure = failureOf(options);
    EXPECT_NE(failure.find(GetParam().url), std::string::npos) << failure;
    EXPECT_NE(failure.find(GetParam().says), std::string::npos) << failure;
}

INSTANTIATE_TEST_SUITE_P(
    All, ZmqBadAddressTest,
    testing::Values(BadAddress{"empty", "", "must begin with ipc:// or tcp://"},
                    BadAddress{"transport", "udp://127.0.0.1:1", "must begin with"},
                    BadAddress{"noPath", "ipc://", "path"},
                    BadAddress{"abstract", "ipc://@service", "path"},
                    BadAddress{"noFolder", "ipc:///nonexistent/service", "No such file"},
                    BadAddress{"noSocket", "ipc:///etc/passwd", "no socket"},
                    BadAddress{"noPort", "tcp://127.0.0.1", "port"},
                    BadAddress{"portTooLarge", "tcp://127.0.0.1:65537", "port"},
                    BadAddress{"anyAddress", "tcp://0.0.0.0:0", "--allow-plain-tcp"},
                    BadAddress{"anyInterface", "tcp://*:0", "--curve-key"},
                    BadAddress{"anyAddress6", "tcp://[::]:0", "CURVE"},
                    BadAddress{"looksLikeLoopback", "tcp://127.0.0.1.example:0", "CURVE"}),
    [](const auto& param) { return param.param.name; });

class ZmqEndpointTest : public ChannelFixture {};

TEST_F(ZmqEndpointTest, keepsTheSocketFileToTheUserAndRemovesIt) {
    open();
    const std::string path = m_folder.path("service");
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & (S_IRWXG | S_IRWXO), 0U);
    m_channel.reset();
    EXPECT_NE(stat(path.c_str(), &status), 0);
}

TEST_F(ZmqEndpointTest, leavesAPathWhereSomeoneListens) {
    open();
    const std::string failure = failureOf(m_options);
    EXPECT_NE(failure.find("another process listens"), std::string::npos) << failure;
    expectService(*newCaller(), 1);
}

TEST_F(ZmqEndpointTest, takesOverThePathOfADeadService) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    m_folder.path("service").copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int dead = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(dead, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    close(dead);
    open();
    expectService(*newCaller(), 1);
}

TEST_F(ZmqEndpointTest, refusesAPathThatIsTooLong) {
    m_options.url = "ipc://" + m_folder.path(std::string(100, 'x'));
    EXPECT_NE(failureOf(m_options).find("longer than 107"), std::string::npos);
}

TEST_F(ZmqEndpointTest, refusesAPortInUse) {
    m_options.url = "tcp://127.0.0.1:0";
    open();
    m_options.url = m_channel->url();
    EXPECT_NE(failureOf(m_options).find("in use"), std::string::npos);
}

TEST_F(ZmqEndpointTest, servesOnTheLoopbackInterface) {
    for (const char* url : {"tcp://127.0.0.1:0", "tcp://localhost:*"}) {
        m_options.url = url;
        open();
        expectService(*newCaller(), 1);
    }
}

TEST(ZmqCaller, saysThatNobodyListens) {
    ZmqCallerOptions options;
    options.url = "ipc:///nonexistent/service";
    options.patience = std::chrono::milliseconds(50);
    try {
        ZmqCaller caller(options);
        FAIL() << "connected";
    } catch (const MirelException& failure) {
        EXPECT_NE(failure.message().find("no service answers"), std::string::npos);
    }
}

} // namespace
} // namespace mirel
