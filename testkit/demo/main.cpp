// Shows a service over NATS that goes on while servers and hosts are killed: nats_demo BUILD_DIR.
// Exits with 0 when everything came out as it should.

#include "testkit/demo/NatsDemo.h"

#include <csignal>
#include <exception>
#include <iostream>
#include <string_view>
#include <unistd.h>

namespace {

constexpr unsigned kLimit = 110; ///< seconds; then something hangs

extern "C" void tooLong(int) {
    constexpr std::string_view text = "demo: not done in time\n";
    static_cast<void>(!write(STDERR_FILENO, text.data(), text.size()));
    _exit(1); // which ends our programs, too
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: nats_demo BUILD_DIR\n";
        return 2;
    }
    const std::string folder = std::string(argv[1]) + "/demo-nats";
    std::signal(SIGALRM, tooLong);
    alarm(kLimit);
    try {
        mirel::NatsDemo(folder).run();
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << "demo: " << failure.what() << "\n      what it has left is in " << folder
                  << '\n';
        return 1;
    }
}
