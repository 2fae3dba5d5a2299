#include "call/CallOptions.h"
#include "call/LoadRun.h"
#include "call/MessageRun.h"
#include "call/RequestFile.h"
#include "framework/MirelException.h"

#include <cerrno>
#include <exception>
#include <fstream>
#include <iostream>
#include <system_error>

namespace {

using Messages = std::vector<CommsChannelDataContainerMessage>;

Messages readInput(const mirel::CallOptions& options) {
    const auto read = [&options](std::istream& in, const std::string& name) {
        return mirel::readRequests(in, name, options.sender.source,
                                   options.connection.maxMessageBytes);
    };
    if (options.input == "-")
        return read(std::cin, "standard input");
    std::ifstream file(options.input);
    if (!file)
        throw MirelException(options.input + ": " + std::generic_category().message(errno),
                             __FILE__, __LINE__);
    return read(file, options.input);
}

Messages oneMessage(const mirel::CallOptions& options) {
    if (options.kind == "timer")
        return {mirel::makeTimerEvent(options.sender, options.timerId)};
    if (options.kind == "legacy")
        return {mirel::makeLegacyMessage(options.sender, options.data)};
    return {mirel::makeRequest(options.sender, options.interface, options.protocol, options.data)};
}

bool run(const mirel::CallOptions& options) {
    if (options.load != 0)
        return mirel::runLoad(options);
    return mirel::runMessages(options,
                              options.input.empty() ? oneMessage(options) : readInput(options));
}

} // namespace

int main(int argc, char** argv) {
    try {
        mirel::CallOptions options;
        if (const auto status = mirel::parseCallOptions(argc, argv, options))
            return *status;
        const bool good = run(options);
        if (!std::cout.flush())
            throw MirelException("the output could not be written", __FILE__, __LINE__);
        return good ? 0 : 1;
    } catch (const std::exception& failure) {
        std::cerr << "mirel-call: " << failure.what() << '\n';
        return 2;
    }
}
