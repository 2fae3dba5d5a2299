#pragma once

#include <string>

namespace mirel {

struct NatsConnectionOptions;

/// The ids by which the server knows a message that is sent once more. It stores no second message
/// with an id, whoever sends it: so nobody who does not have the secret can tell an id before the
/// message is sent, even if he has seen all others. Constant once constructed.
class NatsMessageIds {
public:
    /// Of the secret that those options have for authentication: a caller that comes back gives the
    /// same message the same id. Without one everybody can tell the ids. `MirelException`.
    static NatsMessageIds repeatable(const NatsConnectionOptions& options);

    /// Of a secret that is forgotten with this object.
    static NatsMessageIds unrepeatable();

    /// Of the message that has this name among all messages to the service.
    std::string of(const std::string& message) const;

private:
    explicit NatsMessageIds(std::string secret);

    std::string m_secret;
};

} // namespace mirel
