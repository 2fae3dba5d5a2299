#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace bench {

/// Answers each request with its own data, from its making until it is destroyed.
class EchoService {
public:
    virtual ~EchoService() = default;
};

/// Sends requests of 64 bytes to an echo service in another process. They are numbered from 0, and
/// each is on its way once at most.
class EchoCaller {
public:
    virtual ~EchoCaller() = default;

    virtual void send(std::size_t number) = 0;

    /// Waits for an answer and returns its request's number. `std::runtime_error` when none comes,
    /// or when it is not what was sent.
    virtual std::size_t receive() = 0;

protected:
    static std::string dataOf(std::size_t number);

    /// `std::runtime_error` for data of no request.
    static std::size_t numberOf(std::string_view data);
};

/// A way to a service in another process.
struct Echo {
    const char* name;
    std::unique_ptr<EchoService> (*serve)(const std::string& url);

    /// A caller of `requests` requests, which belong to the sources in turn.
    std::unique_ptr<EchoCaller> (*call)(const std::string& url, int requests, int sources);
};

} // namespace bench
