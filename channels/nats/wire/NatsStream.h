#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace mirel {

class NatsConnection;
struct NatsConnectionOptions;

struct NatsStreamOptions {
    unsigned partitions = 1;                   ///< 1 to 1000
    int replicas = 1;                          ///< 1, 3 or 5: servers that keep each message
    std::chrono::seconds duplicateWindow{120}; ///< a repeated message is known within it

    /// Requests of one source of a caller that the stream keeps, 1 to 100000.
    unsigned maxOfSource = 64;
};

/// What callers need to know of a service's stream.
struct NatsService {
    unsigned partitions = 1;
    unsigned maxOfSource = 1;
};

/// Makes the service's stream, and the one for messages that were given up, where they are missing.
/// Waits for a cluster that has no leader yet, as `search` says. `MirelException` when a stream is
/// there with other settings, or cannot be made.
void provideStream(NatsConnection& connection, const NatsStreamOptions& options,
                   const NatsConnectionOptions& search);

/// The service there. `MirelException` when it has no stream in that time.
NatsService serviceAt(NatsConnection& connection, const NatsConnectionOptions& search);

/// When the service's stream was made, as the server tells it. `NatsError`.
std::string createdAt(NatsConnection& connection);

/// The same for ever, everywhere: FNV-1a, 64 bits (Fowler, Noll, Vo).
std::uint64_t stableHash(const std::string& text);

/// The partition of what has that source channel, by its hash: the order of requests is kept within
/// a partition.
unsigned partitionOf(const std::string& sourceChannel, unsigned partitions);

} // namespace mirel
