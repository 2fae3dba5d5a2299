#include "channels/zmq/FileLock.h"
#include "tests/system/ChannelFixture.h"

#include <cstdint>
#include <fstream>

namespace mirel {
namespace {

class ZmqEndpointTest : public ChannelFixture {};

TEST_F(ZmqEndpointTest, RefusesABadAddressWithAReason) {
    const std::pair<std::string, const char*> bad[] = {
        {"udp://127.0.0.1:1", "must begin with ipc:// or tcp://"},
        {"ipc://", "path"},
        {"ipc://@service", "path"},
        {"ipc:///nonexistent/service", "No such file"},
        {"ipc:///etc/passwd", "no socket"},
        {"ipc:///" + std::string(107, 'x'), "longer than 107"},
        {"tcp://127.0.0.1", "port"},
        {"tcp://127.0.0.1:65537", "port"},
        {"tcp://0.0.0.0:0", "--allow-plain-tcp"},
        {"tcp://[::]:0", "CURVE"},
        {"tcp://127.0.0.1.example:0", "CURVE"},
    };
    for (const auto& [url, why] : bad) {
        m_options.url = url;
        const std::string failure = failureOf([this] { open(); });
        EXPECT_TRUE(contains(failure, "cannot listen on " + url + ": "));
        EXPECT_TRUE(contains(failure, why));
    }
}

/// Even one whose size does not fit 32 bits must be noticed: ZeroMQ removes what is in its way.
TEST_F(ZmqEndpointTest, LeavesALargeFileAlone) {
    const std::string path = m_folder.path("service");
    std::ofstream(path).close();
    fs::resize_file(path, std::uintmax_t{3} << 30);
    EXPECT_TRUE(contains(failureOf([this] { open(); }), "no socket"));
    EXPECT_TRUE(fs::is_regular_file(path));
}

TEST_F(ZmqEndpointTest, KeepsTheSocketFileToTheUserAndRemovesIt) {
    open();
    const std::string path = m_folder.path("service");
    EXPECT_EQ(fs::status(path).permissions() & fs::perms(077), fs::perms::none);
    m_channel.reset();
    EXPECT_FALSE(fs::exists(path));
    EXPECT_FALSE(fs::exists(path + ".lock"));
}

/// The moment between the look whether somebody listens and the bind, which two hosts could share.
TEST_F(ZmqEndpointTest, LeavesThePathToWhoIsAboutToListenThere) {
    const std::string lock = m_folder.path("service.lock");
    {
        const FileLock other(lock);
        ASSERT_TRUE(other.isOurs());
        EXPECT_TRUE(contains(failureOf([this] { open(); }), "another process listens there"));
        EXPECT_TRUE(fs::exists(lock)) << "who is refused removes nothing";
    }
    std::ofstream(lock).close(); // left by a host that crashed
    expectService(*newCaller(), 1);
}

TEST_F(ZmqEndpointTest, ServesOnTheLoopbackInterface) {
    for (const char* url : {"tcp://127.0.0.1:0", "tcp://localhost:*"}) {
        m_options.url = url;
        open();
        expectService(*newCaller(), 1);
    }
}

} // namespace
} // namespace mirel
