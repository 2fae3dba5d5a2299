#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>

namespace mirel {

/// How often each partition's message in doubt has been handed out, written before it is: so that
/// who comes after a host that died of it knows. Used by one thread.
class NatsAttempts {
public:
    /// Where the counts are kept, and stay when this process is gone: a text under each key, at
    /// first an empty one. Both functions may throw `NatsError`.
    struct Store {
        std::function<std::string(const std::string& key)> read;
        std::function<void(const std::string& key, const std::string& text)> write;
    };

    explicit NatsAttempts(Store store) : m_store(std::move(store)) {}

    /// Counts this process's attempt at the message, once. False, and nothing is counted, when
    /// there have been `most` of others, the one included that brought it in doubt. `NatsError`; to
    /// be called again then.
    bool begin(unsigned partition, const std::string& message, unsigned most);

private:
    struct Attempt {
        std::string message;
        unsigned count = 0;
        bool written = false;
    };

    const Store m_store;
    std::map<unsigned, Attempt> m_own; ///< of each partition, the last one
};

} // namespace mirel
