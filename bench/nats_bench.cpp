// A request of 64 bytes through NATS JetStream to another process and its answer: through the
// channel, a service executor and its workers, against a bare loop on the engine's library. One in
// flight, saturated, and saturated on three servers that keep three copies.

#include "bench/EchoProgram.h"
#include "bench/NatsEcho.h"
#include "testkit/NatsCluster.h"
#include "testkit/TemporaryFolder.h"

#include <array>
#include <string>

namespace {

using namespace bench;

constexpr int kWindow = 256;

constexpr std::array<Echo, 2> kEchoes{{
    {"mirel", &serveMirelNatsEcho, &callMirelNatsEcho},
    {"bare", &serveBareNatsEcho, &callBareNatsEcho},
}};

void add(const std::string& cell, std::size_t servers, int window, int sources) {
    for (const Echo& echo : kEchoes)
        addEcho(cell, echo, [=, &echo](benchmark::State& state) {
            const mirel::TemporaryFolder folder;
            const mirel::NatsCluster cluster(folder.path("cluster"), servers);
            cluster.waitUntilReady();
            measureEcho(state, echo, cluster.url("echo"), window, sources);
        });
}

} // namespace

int main(int argc, char** argv) {
    return runEchoProgram(argc, argv, kEchoes, [] {
        add("nats/closed/", 1, 1, 1);
        for (const int sources : {8, 64})
            add("nats/saturated/" + std::to_string(sources) + "/", 1, kWindow, sources);
        add("nats/replicated/64/", 3, kWindow, 64);
    });
}
