#include "host/HostOptions.h"

#include "engine/Engine.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <utility>

namespace mirel {

namespace {

void addServiceOptions(CLI::App& app, HostOptions& options) {
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
                   "Accepted requests not answered yet, and likewise workers in use, at which the "
                   "host stops reading until there are fewer")
        ->check(CLI::Range(1UL, 1000000UL))
        ->capture_default_str();
}

void addChannelOptions(CLI::App& app, ZmqChannelOptions& channel) {
    app.add_option("--channel", channel.url,
                   "Where to listen: ipc://PATH or tcp://ADDRESS:PORT (port 0: any free one); or "
                   "the service's "
                   "place on NATS JetStream: nats://HOST:PORT[,HOST:PORT...]/SERVICE; required");
    app.add_option("--queue", channel.queueLength,
                   "Messages kept for the service before callers are made to wait")
        ->check(CLI::Range(std::size_t{1}, std::size_t{1000000}))
        ->capture_default_str();
    app.add_option("--max-message", channel.maxMessageBytes,
                   "Largest message and largest answer, in bytes")
        ->check(CLI::Range(std::size_t{1}, std::size_t{1} << 30))
        ->capture_default_str();
    app.add_flag("--allow-plain-tcp", channel.allowPlainTcpBeyondLoopback,
                 "Let tcp:// without CURVE listen beyond this machine: everyone who reaches the "
                 "port may call, and can read along");
    app.add_option("--curve-key", channel.curveKeyFile,
                   "The service's secret key file; switches CURVE encryption on");
    app.add_option(
        "--allowed-callers", channel.allowedCallersFile,
        "File with the public keys of the callers let in, one a line; needs --curve-key. "
        "Without it, everyone who knows the service's public key may call");
}

/// The engine's stream keeps these; all hosts of a service say the same.
void addNatsStreamOptions(CLI::App& group, NatsStreamOptions& stream) {
    group
        .add_option("--partitions", stream.partitions,
                    "Parts that the service's sources are divided into; each is served by one host "
                    "at a time")
        ->check(CLI::Range(1U, 1000U))
        ->capture_default_str();
    group.add_option("--replicas", stream.replicas, "Servers that keep each message")
        ->check(CLI::IsMember({1, 3, 5}))
        ->capture_default_str();
}

CLI::App* addNatsChannelOptions(CLI::App& app, NatsChannelOptions& nats) {
    CLI::App* const group = addNatsOptions(app, nats.connection);
    addNatsStreamOptions(*group, nats.stream);
    const auto milliseconds = [group](const char* name, std::chrono::milliseconds& value,
                                      const char* text, int least) {
        group
            ->add_option_function<int>(
                name, [&value](int ms) { value = std::chrono::milliseconds(ms); }, text)
            ->check(CLI::Range(least, 86400000))
            ->default_str(std::to_string(value.count()));
    };
    milliseconds("--patience", nats.connection.patience,
                 "Time for finding a server at the start, in milliseconds", 0);
    milliseconds("--acknowledge-within", nats.acknowledgeWithin,
                 "Time after which a request is delivered again if its host has said nothing about "
                 "it, in milliseconds",
                 1000);
    milliseconds("--lease", nats.lease,
                 "Time for which a host that says nothing keeps its partitions, in milliseconds",
                 1000);
    group
        ->add_option("--max-unacknowledged", nats.maxUnacknowledged,
                     "Requests of each partition that are delivered and not acknowledged")
        ->check(CLI::Range(std::size_t{1}, std::size_t{100000}))
        ->capture_default_str();
    group
        ->add_option("--max-deliveries", nats.maxDeliveries,
                     "A request whose host has died so often while it ran is given up")
        ->check(CLI::Range(2U, 1000U))
        ->capture_default_str();
    return group;
}

void addThreadOptions(CLI::App& app, HostOptions& options) {
    app.add_option("--nice-step", options.threads.niceStep,
                   "Nice values between neighbouring priorities; 0 leaves nice values alone")
        ->check(CLI::Range(0, 9))
        ->capture_default_str();
    app.add_flag("!--no-workers-yield", options.threads.workersYield,
                 "Let threads of priority 0 and 1 take a core from a running thread when they are "
                 "woken");
    app.add_option("--real-time", options.threads.realTimePriority,
                   "Run threads under SCHED_RR, at this priority plus the thread's 0 to 2; needs "
                   "the privilege; 0: off")
        ->check(CLI::Range(0, 97))
        ->capture_default_str();
    app.add_option("--stack-size", options.threads.stackSize, "Stack of each thread, in bytes")
        ->check(CLI::Range(std::size_t{65536}, std::size_t{1} << 30))
        ->capture_default_str();
    app.add_option("--log", options.logLevels,
                   "Most detailed level logged, 2 (errors) to 6, and exceptions to it, such as "
                   "3,ServiceExecutor=6; default: the environment's MIREL_LOG, or 3");
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
    CLI::App app("Hosts one service until SIGINT or SIGTERM.", "mirel-host");
    app.footer(
        "Prints a line that begins with \"serving\" when callers can connect, and a summary "
        "at the end.\nExit status: 0 stopped as told, 1 the service's loop failed, 2 it could "
        "not start.");
    addServiceOptions(app, options);
    addChannelOptions(app, options.channel);
    const CLI::App* const natsGroup = addNatsChannelOptions(app, options.nats);
    addThreadOptions(app, options);
    app.add_option("--generate-keys", options.generateKeys,
                   "Write a new key pair to NAME.key (secret) and NAME.pub, and exit")
        ->type_name("NAME");
    try {
        app.parse(argc, argv);
        if (options.generateKeys.empty())
            checkComplete(options);
        checkNatsOptions(app, *natsGroup, options.channel.url,
                         {"--queue", "--allow-plain-tcp", "--curve-key", "--allowed-callers"});
        options.nats.connection.url = options.channel.url;
        options.nats.maxMessageBytes = options.channel.maxMessageBytes;
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
