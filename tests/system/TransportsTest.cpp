#include "channels/open/Transports.h"
#include "channels/Caller.h"
#include "channels/nats/NatsDeclaration.h"
#include "channels/zmq/ZmqTransport.h"
#include "tests/system/ChannelFixture.h"

namespace mirel {
namespace {

TEST(TransportsTest, SayWhyAnAddressCannotBeOpened) {
    Transports withoutNats;
    withoutNats.add(std::make_unique<ZmqTransport>());
    withoutNats.add(std::make_unique<NatsDeclaration>());
    const std::pair<const char*, const char*> bad[] = {
        {"udp://127.0.0.1:1", "'udp://127.0.0.1:1' is no address of a service; it looks like one "
                              "of ipc://PATH, tcp://HOST:PORT, nats://"},
        {"natsx://nobody/service", "is no address"},
        {"nats", "is no address"},
        {"", "is no address"},
        {"nats://nobody/service",
         "nats://nobody/service: this program was built without NATS (MIREL_NATS)"},
        {"tls://nobody/service", "built without NATS"},
        {"ipc:///nonexistent/service", "ipc:///nonexistent/service"},
    };
    for (const auto& [url, why] : bad) {
        ChannelSettings channel;
        CallerSettings caller;
        channel.url = caller.url = url;
        caller.patience = {};
        EXPECT_TRUE(contains(failureOf([&] { withoutNats.openChannel(channel); }), why));
        EXPECT_TRUE(contains(failureOf([&] { withoutNats.openCaller(caller); }), why));
    }
}

} // namespace
} // namespace mirel
