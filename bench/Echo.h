#pragma once

#include "bench/Benchmarks.h"
#include "channels/Caller.h"
#include "framework/CommsChannelIfc.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

/// Answers each request with its own data, from its making until it is destroyed.
using EchoService = std::shared_ptr<void>;

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
    /// Of each request.
    static std::vector<std::string> dataOf(int requests);

    /// `std::runtime_error` for data of no request.
    static std::size_t numberOf(std::string_view data);
};

/// A service executor on the channel, with the workers of `mirel-host`.
EchoService serveMirelEcho(std::unique_ptr<CommsChannelIfc> channel);

/// By the caller of `mirel-call`.
std::unique_ptr<EchoCaller> callMirelEcho(std::unique_ptr<mirel::Caller> caller, int requests,
                                          int sources);

/// A way to a service in another process.
struct Echo {
    std::string_view name;
    EchoService (*serve)(const std::string& url);

    /// A caller of `requests` requests, which belong to the sources in turn.
    std::unique_ptr<EchoCaller> (*call)(const std::string& url, int requests, int sources);
};

/// The main function of a program that measures echoes, and, in the processes that it starts of
/// itself, serves them. `add` registers the benchmarks.
int runEchoProgram(int argc, char** argv, std::span<const Echo> echoes,
                   const std::function<void()>& add);

/// Serves the echo in another process, and keeps `window` requests in flight: each is sent again as
/// soon as it is answered. One iteration is one answer.
void measureEcho(benchmark::State& state, const Echo& echo, const std::string& url, int window,
                 int sources);

} // namespace bench
