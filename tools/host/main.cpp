#include "host/Host.h"
#include "host/HostOptions.h"

#include <csignal>
#include <exception>
#include <iostream>

int main(int argc, char** argv) {
    // Who reads our output or our log may stop reading; the service goes on.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        mirel::HostOptions options;
        if (const auto status = mirel::parseHostOptions(argc, argv, options))
            return *status;
        if (!options.instead)
            return mirel::serve(options);
        std::cout << options.instead() << '\n';
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << "mirel-host: " << failure.what() << '\n';
        return 2;
    }
}
