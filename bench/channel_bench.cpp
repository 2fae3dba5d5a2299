// A request of 64 bytes to another process over ipc:// and its answer: through the channel, a
// service executor and its workers, against a bare ZeroMQ echo. One in flight, and saturated.

#include "bench/EchoProgram.h"
#include "bench/ZmqEcho.h"
#include "testkit/TemporaryFolder.h"

#include <array>
#include <string>

namespace {

using namespace bench;

constexpr std::array<Echo, 2> kEchoes{{
    {"mirel", &serveMirelZmqEcho, &callMirelZmqEcho},
    {"bare", &serveBareZmqEcho, &callBareZmqEcho},
}};

void add(const std::string& cell, int window, int sources) {
    for (const Echo& echo : kEchoes)
        addEcho(cell, echo, [=, &echo](benchmark::State& state) {
            const mirel::TemporaryFolder folder;
            measureEcho(state, echo, "ipc://" + folder.path("socket"), window, sources);
        });
}

} // namespace

int main(int argc, char** argv) {
    return runEchoProgram(argc, argv, kEchoes, [] {
        add("channel/closed/", 1, 1);
        for (const int sources : {1, 8})
            add("channel/saturated/" + std::to_string(sources) + "/", 100, sources);
    });
}
