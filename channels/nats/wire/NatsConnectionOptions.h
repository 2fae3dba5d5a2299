#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace mirel {

struct NatsConnectionOptions {
    /// The service's address, see NatsAddress.h.
    std::string url;

    /// How long to look for a server when connecting.
    std::chrono::milliseconds patience{5000};

    /// Asked a few times a second meanwhile, and never afterwards; true ends the search.
    std::function<bool()> giveUp = [] { return false; };

    // Authentication; empty: none. The user's name is also the part of subjects by which the server
    // knows what the user may do. The password is the first line of its file, so that it is on no
    // command line.
    std::string user;
    std::string passwordFile;
    std::string credentialsFile; ///< with the user's JWT and seed, as NATS's own tools make it

    // TLS, for `tls://`; empty: the system's authorities, no certificate of our own.
    std::string authoritiesFile;
    std::string certificateFile;
    std::string keyFile;
};

} // namespace mirel
