#include "call/CallOptions.h"

#include "channels/RandomName.h"
#include "options/TransportOptions.h"

#include <CLI/CLI.hpp>
#include <iostream>

namespace mirel {

namespace {

/// Within this, neither side has to drop answers; see `ZmqCaller`.
constexpr std::size_t kLargestWindow = 1000;

void addConnectionOptions(CLI::App& app, CallOptions& options) {
    app.option_defaults()->group("The connection");
    app.add_option("--channel", options.connection.url,
                   "The service's address: " + options.transports.addresses())
        ->type_name("ADDRESS")
        ->required();
    app.add_option_function<int>(
           "--deadline", [&options](int ms) { options.deadline = std::chrono::milliseconds(ms); },
           "Time for connecting, and for each answer, in milliseconds")
        ->check(CLI::Range(1, 3600000))
        ->default_str(std::to_string(options.deadline.count()));
    app.add_option("--window", options.window, "Requests on their way at once")
        ->check(CLI::Range(std::size_t{1}, kLargestWindow))
        ->capture_default_str();
    app.add_option("--max-message", options.connection.maxMessageBytes,
                   "Largest message sent, in bytes")
        ->check(CLI::Range(std::size_t{1}, std::size_t{1} << 30))
        ->capture_default_str();
}

/// Returns --source.
CLI::Option* addMessageOptions(CLI::App& app, CallOptions& options) {
    app.option_defaults()->group("What to send");
    app.add_option("--kind", options.kind, "What to send; only requests are answered")
        ->check(CLI::IsMember({"request", "timer", "legacy"}))
        ->capture_default_str();
    CLI::Option* const source = app.add_option(
        "--source", options.sender.source,
        "The source channel: requests of one source run one at a time and in their order; default: "
        "what --caller says, or a new one, so that nobody waits for strangers");
    app.add_option("--priority", options.sender.priority, "0 (low), 1 or 2 (high)")
        ->check(CLI::Range(0, 2))
        ->capture_default_str();
    app.add_option("--interface", options.interface, "The request's interface");
    app.add_option("--protocol", options.protocol, "The request's protocol");
    app.add_option("--data", options.data, "The data of a request or legacy message");
    app.add_option("--timer-id", options.timerId, "The timer of a timer event")
        ->capture_default_str();
    return source;
}

void addManyOptions(CLI::App& app, CallOptions& options) {
    app.option_defaults()->group("Many messages");
    CLI::Option* const input = app.add_option(
        "--input", options.input,
        "Send the messages of this file (-: standard input), a JSON object a line, with kind "
        "(request, timer, legacy), source, priority, interface, protocol, data, timerId");
    CLI::Option* const load =
        app.add_option("--load", options.load,
                       "Send this many requests and measure; {source} and {n} in --data stand for "
                       "the source and for the request's number within its source, from 1")
            ->check(CLI::Range(1UL, 100000000UL))
            ->excludes(input);
    app.add_option("--sources", options.sources,
                   "Sources of the load, called SOURCE-1, SOURCE-2 and so on")
        ->check(CLI::Range(1UL, 1000000UL))
        ->capture_default_str()
        ->needs(load);
    app.add_option("--priorities", options.priorities,
                   "Priorities that each source of the load takes in turn, such as 0,1,2")
        ->delimiter(',')
        ->check(CLI::Range(0, 2))
        ->needs(load);
    app.add_option("--timeline", options.timeline,
                   "Write the load's answers over time to this file, as CSV: the seconds from the "
                   "start to the end of each 100 ms, and the answers within them")
        ->needs(load);
}

/// A caller with a name that repeats a request repeats it under the same source, too: otherwise it
/// would be another request.
std::string defaultSource(const CallOptions& options) {
    std::string name = options.transports.of(options.connection.url).callerName();
    return name.empty() ? randomSourceName() : name;
}

void checkComplete(const CallOptions& options) {
    if (!options.input.empty() && (options.kind != "request" || !options.interface.empty() ||
                                   !options.protocol.empty() || !options.data.empty()))
        throw CLI::ValidationError("--input",
                                   "the file says what is sent; only --source goes with it");
    if (options.load != 0 && options.kind != "request")
        throw CLI::ValidationError("--load", "sends requests only");
    const bool request = options.input.empty() && options.kind == "request";
    if (request && (options.interface.empty() || options.protocol.empty()))
        throw CLI::RequiredError("--interface and --protocol");
}

} // namespace

std::optional<int> parseCallOptions(int argc, char** argv, CallOptions& options) {
    CLI::App app("Calls a service that mirel-host serves: sends one message, those of a file, or a "
                 "load.",
                 "mirel-call");
    app.footer("Exit status: 0 all requests answered successfully and in order, 1 not so, 2 wrong "
               "usage or no connection.");
    addConnectionOptions(app, options);
    const CLI::Option* const source = addMessageOptions(app, options);
    addManyOptions(app, options);
    const TransportOptions transportOptions(app, options.transports, &Transport::callerOptions);
    try {
        app.parse(argc, argv);
        checkComplete(options);
        transportOptions.check(options.connection.url);
        options.connection.patience = options.deadline;
        if (source->count() == 0)
            options.sender.source = defaultSource(options);
        return std::nullopt;
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return 0;
    } catch (const CLI::ParseError& error) {
        std::cerr << "mirel-call: " << error.what() << " (--help explains the options)\n";
        return 2;
    }
}

} // namespace mirel
