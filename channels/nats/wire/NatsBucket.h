#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <nats/nats.h>
#include <optional>
#include <string>
#include <vector>

namespace mirel {

class NatsConnection;

/// A few values kept by the server, each under a key. Used by one thread. Every function throws
/// `NatsError` when the server does not answer.
class NatsBucket {
public:
    struct Value {
        std::string text;
        std::uint64_t revision;
    };

    /// Makes the bucket if it is not there. A value disappears `lifetime` after it was written (0:
    /// never). The connection must outlive it.
    NatsBucket(NatsConnection& connection, const std::string& name,
               std::chrono::milliseconds lifetime, int replicas);

    std::optional<Value> get(const std::string& key);
    std::uint64_t put(const std::string& key, const std::string& text);

    /// Writes only if the key has no value. The new revision; nothing when it has one.
    std::optional<std::uint64_t> create(const std::string& key, const std::string& text);

    /// Writes only if the value has that revision still. The new one; nothing when it has not.
    std::optional<std::uint64_t> update(const std::string& key, const std::string& text,
                                        std::uint64_t revision);

    /// Removes the value if it has that revision still; nothing stays of it.
    void remove(const std::string& key, std::uint64_t revision);

    /// The keys that have values.
    std::vector<std::string> keys();

private:
    struct Closer {
        void operator()(jsCtx* context) const { jsCtx_Destroy(context); }
        void operator()(kvStore* store) const { kvStore_Destroy(store); }
    };

    NatsConnection& m_connection;
    const std::string m_stream;
    const std::string m_prefix; ///< of the subjects
    std::unique_ptr<jsCtx, Closer> m_context;
    std::unique_ptr<kvStore, Closer> m_store;
};

} // namespace mirel
