#include "host/HostOptions.h"

#include "options/TransportOptions.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <utility>

namespace mirel {

namespace {

void addServiceOptions(CLI::App& app, HostOptions& options) {
    app.option_defaults()->group("The service");
    app.add_option("--library", options.serviceLibrary,
                   "The service library, as dlopen takes it; required");
    app.add_option("--creator", options.creator,
                   "The function in the library that makes the service; required");
    app.add_option("--interface", options.interface,
                   "The interfaces offered: a request is taken when its interface's name occurs in "
                   "this text; required");
    app.add_flag("--single-threaded", options.singleThreaded,
                 "Run requests and timer events one after the other, on one thread");
    app.add_option("--max-pool", options.maxPool,
                   "Workers kept for reuse; more are made when needed, and end after use")
        ->check(CLI::Range(0, 10000))
        ->capture_default_str();
    app.add_option("--max-unfinished", options.maxUnfinished,
                   "Requests not answered yet. The callers' shares are parts of this")
        ->check(CLI::Range(1UL, 1000000UL))
        ->capture_default_str();
    app.add_option("--max-workers", options.maxWorkers,
                   "Workers in use at which the host stops reading until there are fewer; the "
                   "callers' shares are parts of this, too. Default: 1000, or half of the threads "
                   "that the system lets this process start, if that is less")
        ->check(CLI::Range(1UL, 1000000UL));
}

void addChannelOptions(CLI::App& app, HostOptions& options) {
    app.option_defaults()->group("The channel");
    app.add_option("--channel", options.channel.url,
                   "Where to serve: " + options.transports.addresses() +
                       "; with port 0, the system chooses one; required")
        ->type_name("ADDRESS");
    app.add_option("--max-message", options.channel.maxMessageBytes,
                   "Largest message and largest answer, in bytes")
        ->check(CLI::Range(std::size_t{1}, std::size_t{1} << 30))
        ->capture_default_str();
}

void addThreadOptions(CLI::App& app, HostOptions& options) {
    app.option_defaults()->group("Threads and log");
    app.add_option("--nice-step", options.threads.niceStep,
                   "Nice values between neighbouring priorities; 0 leaves nice values alone")
        ->check(CLI::Range(0, 9))
        ->capture_default_str();
    app.add_flag_callback(
        "--no-workers-yield", [&options] { options.threads.workersYield = false; },
        "Let threads of priority 0 and 1 take a core from a running thread when they are "
        "woken");
    app.add_option("--real-time", options.threads.realTimePriority,
                   "Run threads under SCHED_RR, at this priority plus the thread's 0 to 2; needs "
                   "the privilege; 0: off")
        ->check(CLI::Range(0, 97))
        ->capture_default_str();
    app.add_option("--kept-threads", options.threads.keptThreads,
                   "Threads that may rest after a worker has ended, for the next one; 0: none")
        ->check(CLI::Range(0, 100000))
        ->capture_default_str();
    app.add_option_function<int>(
           "--kept-for",
           [&options](int milliseconds) {
               options.threads.keptFor = std::chrono::milliseconds(milliseconds);
           },
           "Milliseconds for which one rests")
        ->check(CLI::Range(0, 86400000))
        ->default_str(std::to_string(options.threads.keptFor.count()));
    app.add_option("--stack-size", options.threads.stackSize, "Stack of each thread, in bytes")
        ->check(CLI::Range(std::size_t{65536}, std::size_t{1} << 30))
        ->capture_default_str();
    app.add_option("--log", options.logLevels,
                   "Most detailed level logged, 2 (errors) to 6, and exceptions to it, such as "
                   "3,ServiceExecutor=6; default: the environment's MIREL_LOG, or 3");
    app.add_option("--log-data", options.loggedData,
                   "Bytes of a failed request's data that its report in the log has; 0: none")
        ->capture_default_str();
}

void checkComplete(const HostOptions& options) {
    const std::pair<const char*, const std::string&> needed[] = {
        {"--library", options.serviceLibrary},
        {"--creator", options.creator},
        {"--interface", options.interface},
        {"--channel", options.channel.url},
    };
    for (const auto& [name, value] : needed) {
        if (value.empty())
            throw CLI::RequiredError(name);
    }
}

} // namespace

std::optional<int> parseHostOptions(int argc, char** argv, HostOptions& options) {
    CLI::App app("Hosts one service until SIGINT, SIGTERM or SIGHUP.", "mirel-host");
    app.footer("Prints a line that begins with \"serving\" when callers can connect, and a summary "
               "at the end.\nExit status: 0 stopped as told, 1 its service could not be made, its "
               "loop failed again and again, or its channel ended, 2 it could not start.");
    addServiceOptions(app, options);
    addChannelOptions(app, options);
    addThreadOptions(app, options);
    const TransportOptions transportOptions(app, options.transports, &Transport::channelOptions);
    try {
        app.parse(argc, argv);
        options.instead = transportOptions.instead();
        if (options.instead)
            return std::nullopt;
        checkComplete(options);
        transportOptions.check(options.channel.url);
        return std::nullopt;
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return 0;
    } catch (const CLI::ParseError& error) {
        std::cerr << "mirel-host: " << error.what() << " (--help explains the options)\n";
        return 2;
    }
}

} // namespace mirel
