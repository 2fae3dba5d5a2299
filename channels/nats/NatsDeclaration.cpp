#include "channels/nats/NatsDeclaration.h"

namespace mirel {

namespace {

using OneOf = TransportOption::OneOf;
using Range = TransportOption::Range;
using Text = TransportOption::Text;

constexpr int kDay = 24 * 60 * 60 * 1000; ///< in milliseconds

/// Those of both sides.
std::vector<TransportOption> connectionOptions(NatsConnectionOptions& options) {
    return {
        {"--user", &options.user, "The user's name on the NATS server, by which its permissions go",
         Text{"NAME"}},
        {"--password-file", &options.passwordFile, "File whose first line is the user's password",
         Text{"FILE"}},
        {"--credentials", &options.credentialsFile,
         "The user's credentials file, as the NATS server's own tools make it", Text{"FILE"}},
        {"--tls-authorities", &options.authoritiesFile,
         "Certificates of the authorities to trust; default: the system's", Text{"FILE"}},
        {"--tls-certificate", &options.certificateFile,
         "Your own certificate, for a server that asks for it", Text{"FILE"}},
        {"--tls-key", &options.keyFile, "Its key", Text{"FILE"}},
    };
}

} // namespace

NatsDeclaration::NatsDeclaration()
    : Transport("NATS", "MIREL_NATS", {"nats://HOST:PORT[,HOST:PORT...]/SERVICE", "tls://..."}) {}

std::vector<TransportOption> NatsDeclaration::channelOptions() {
    std::vector<TransportOption> options = connectionOptions(m_channel.connection);
    const TransportOption own[] = {
        {"--partitions", &m_channel.stream.partitions,
         "Parts that the service's sources are divided into; each is served by one host at a time",
         Range{1, 1000}},
        {"--replicas", &m_channel.stream.replicas, "Servers that keep each message",
         OneOf{{1, 3, 5}}},
        {"--patience", &m_channel.connection.patience,
         "Time for finding a server at the start, in milliseconds", Range{0, kDay}},
        {"--acknowledge-within", &m_channel.acknowledgeWithin,
         "Time after which a request is delivered again if its host has said nothing about it, in "
         "milliseconds",
         Range{1000, kDay}},
        {"--lease", &m_channel.lease,
         "Time for which a host that says nothing keeps its partitions, in milliseconds",
         Range{1000, kDay}},
        {"--max-unacknowledged", &m_channel.maxUnacknowledged,
         "Requests of each partition that are delivered and not acknowledged", Range{1, 100000}},
        {"--max-of-source", &m_channel.stream.maxOfSource,
         "Requests of one source of a caller that the server keeps; it refuses more until some are "
         "answered. More than --max-unacknowledged lets one source stop its partition",
         Range{1, 100000}},
        {"--max-deliveries", &m_channel.maxDeliveries,
         "A request whose host has died so often while it ran is given up", Range{2, 1000}},
    };
    options.insert(options.end(), std::begin(own), std::end(own));
    return options;
}

std::vector<TransportOption> NatsDeclaration::callerOptions() {
    std::vector<TransportOption> options = connectionOptions(m_caller.connection);
    options.push_back({"--caller", &m_caller.name,
                       "Your name: a request repeated under the same name and number within two "
                       "minutes does not run twice, if your password, credentials or key are the "
                       "same, too; default: a new one",
                       Text{"NAME"}});
    return options;
}

} // namespace mirel
