#include "channels/nats/wire/NatsStream.h"

#include "channels/nats/wire/NatsConnection.h"
#include "framework/MirelException.h"
#include "runtime/threads/Mutex.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>

namespace mirel {

namespace {

using nlohmann::json;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// The server's numbers for reasons.
constexpr int kNoAnswer = 0;
constexpr int kNoLeader = 10008;
constexpr int kNoPeers = 10005; ///< for all replicas
constexpr int kStreamNotFound = 10059;
constexpr int kStreamNameInUse = 10058;

constexpr milliseconds kCallPatience{2000};
constexpr milliseconds kBetweenAttempts{100};
constexpr unsigned kMostPartitions = 1000;
constexpr unsigned kMostOfSource = 100000;

constexpr const char* kDescription = "requests of a service, partitions: ";

[[noreturn]] void fail(const std::string& text) { throw MirelException(text, __FILE__, __LINE__); }

/// Repeats the call until it gives an answer, while its failure may pass by itself.
json patiently(const NatsConnectionOptions& search, const std::function<bool(int)>& passes,
               const std::function<json()>& call) {
    const auto deadline = Clock::now() + search.patience;
    Mutex mutex;
    std::condition_variable never; // nothing tells when a cluster has found its leader
    for (Lock lock(mutex);; lock.waitUntil(never, Clock::now() + kBetweenAttempts)) {
        try {
            return call();
        } catch (const NatsError& failure) {
            if (!passes(failure.code()) || Clock::now() >= deadline || search.giveUp())
                throw;
        }
    }
}

bool electionPasses(int code) { return code == kNoAnswer || code == kNoLeader || code == kNoPeers; }

std::string infoOn(const std::string& stream) { return "STREAM.INFO." + stream; }

json infoOf(NatsConnection& connection, const std::string& stream) {
    return connection.call(infoOn(stream), nullptr, kCallPatience).at("config");
}

/// Both settings of the stream as a reader of an error line wants them.
std::string difference(const json& is, const json& wanted) {
    std::string text;
    for (const auto& [name, value] : wanted.items()) {
        const auto found = is.find(name);
        if (found == is.end() || *found != value)
            text += (text.empty() ? "" : ", ") + name + " is " +
                    (found == is.end() ? "not set" : found->dump()) + " and not " + value.dump();
    }
    return text;
}

void provide(NatsConnection& connection, const NatsConnectionOptions& search, const json& wanted) {
    const std::string name = wanted.at("name");
    const json is = patiently(search, &electionPasses, [&] {
        try {
            return infoOf(connection, name);
        } catch (const NatsError& failure) {
            if (failure.code() != kStreamNotFound)
                throw;
        }
        try {
            return connection.call("STREAM.CREATE." + name, wanted, kCallPatience).at("config");
        } catch (const NatsError& failure) {
            if (failure.code() != kStreamNameInUse) // another host has just made it
                throw;
        }
        return infoOf(connection, name);
    });
    if (const std::string text = difference(is, wanted); !text.empty())
        fail("the stream " + name + " at " + connection.address().url() +
             " has other settings: " + text + "; serve it with those, or remove the stream");
}

} // namespace

void provideStream(NatsConnection& connection, const NatsStreamOptions& options,
                   const NatsConnectionOptions& search) {
    const NatsAddress& address = connection.address();
    if (options.partitions == 0 || options.partitions > kMostPartitions)
        fail("a service has 1 to " + std::to_string(kMostPartitions) + " partitions");
    if (options.replicas != 1 && options.replicas != 3 && options.replicas != 5)
        fail("1, 3 or 5 servers keep each message");
    if (options.maxOfSource == 0 || options.maxOfSource > kMostOfSource)
        fail("1 to " + std::to_string(kMostOfSource) + " requests of a source are kept");
    try {
        provide(connection, search,
                {{"name", address.stream()},
                 {"subjects", {address.requests()}},
                 {"retention", "workqueue"},
                 {"storage", "file"},
                 {"num_replicas", options.replicas},
                 // The server refuses what is too much of one source, and knows nothing of it
                 // afterwards: the same id is taken when there is room.
                 {"max_msgs_per_subject", options.maxOfSource},
                 {"discard", "new"},
                 {"discard_new_per_subject", true},
                 {"duplicate_window", std::chrono::nanoseconds(options.duplicateWindow).count()},
                 {"description", kDescription + std::to_string(options.partitions)}});
        provide(connection, search,
                {{"name", address.deadLetterStream()},
                 {"subjects", {address.deadLetters()}},
                 {"retention", "limits"},
                 {"storage", "file"},
                 {"num_replicas", options.replicas}});
    } catch (const NatsError& failure) {
        fail("the stream of " + address.url() + " cannot be made: " + failure.what());
    }
}

NatsService serviceAt(NatsConnection& connection, const NatsConnectionOptions& search) {
    const NatsAddress& address = connection.address();
    const auto passes = [](int code) { return electionPasses(code) || code == kStreamNotFound; };
    try {
        const auto info = patiently(search, passes, [&] {
            return connection.callService(infoOn(address.stream()), kCallPatience);
        });
        const json& config = info.at("config");
        const std::string description = config.value("description", "");
        const std::string count = description.starts_with(kDescription)
                                      ? description.substr(std::string(kDescription).size())
                                      : std::string();
        const std::int64_t maxOfSource = config.value("max_msgs_per_subject", std::int64_t{-1});
        if (count.empty() || count.size() > 4 ||
            count.find_first_not_of("0123456789") != std::string::npos || maxOfSource < 1)
            fail("the stream at " + address.url() + " is not that of a service");
        return {static_cast<unsigned>(std::stoul(count)), static_cast<unsigned>(maxOfSource)};
    } catch (const NatsError& failure) {
        if (failure.code() == kStreamNotFound)
            fail("there is no service at " + address.url() + ": no host has served it yet");
        fail("the server cannot say whether there is a service at " + address.url() + ": " +
             failure.what());
    }
}

std::string createdAt(NatsConnection& connection) {
    return connection.call(infoOn(connection.address().stream()), nullptr, kCallPatience)
        .value("created", "");
}

std::uint64_t stableHash(const std::string& text) {
    std::uint64_t hash = 14695981039346656037ULL;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
    return hash;
}

unsigned partitionOf(const std::string& sourceChannel, unsigned partitions) {
    return static_cast<unsigned>(stableHash(sourceChannel) % partitions);
}

} // namespace mirel
