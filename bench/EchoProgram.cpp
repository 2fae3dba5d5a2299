#include "bench/EchoProgram.h"

#include "bench/Percentiles.h"
#include "testkit/Process.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kServe = "--serve"; ///< of the other process: kind and URL follow
constexpr const char* kServing = "serving";
constexpr int kWarmUp = 2000; ///< requests before those that are measured

void serve(std::span<const Echo> echoes, const std::string& name, const std::string& url) {
    const auto echo = std::find_if(echoes.begin(), echoes.end(),
                                   [&name](const Echo& kind) { return kind.name == name; });
    if (echo == echoes.end())
        throw std::runtime_error("there is no service " + name);
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigprocmask(SIG_BLOCK, &stop, nullptr); // the service's threads, too, leave it to us
    const auto service = echo->serve(url);
    std::cout << kServing << std::endl;
    int signal = 0;
    sigwait(&stop, &signal);
}

void run(int argc, char** argv, const std::function<void()>& add) {
    add();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        throw std::runtime_error("an argument is not known");
    benchmark::RunSpecifiedBenchmarks();
}

} // namespace

int runEchoProgram(int argc, char** argv, std::span<const Echo> echoes,
                   const std::function<void()>& add) {
    try {
        if (argc == 4 && std::string(argv[1]) == kServe)
            serve(echoes, argv[2], argv[3]);
        else
            run(argc, argv, add);
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << std::filesystem::path(argv[0]).filename().string() << ": " << failure.what()
                  << '\n';
        return 2;
    }
}

void addEcho(const std::string& cell, const Echo& echo,
             const std::function<void(benchmark::State&)>& measure) {
    benchmark::RegisterBenchmark((cell + echo.name).c_str(), measure)
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
}

void measureEcho(benchmark::State& state, const Echo& echo, const std::string& url, int window,
                 int sources) {
    // This program's real name, which a profiler that follows the child needs.
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    mirel::Process server({self, kServe, echo.name, url});
    if (!server.waitFor(kServing))
        throw std::runtime_error("the server process does not serve");
    const auto caller = echo.call(url, window, sources);

    std::vector<Clock::time_point> sent(static_cast<std::size_t>(window), Clock::now());
    for (std::size_t number = 0; number < sent.size(); ++number)
        caller->send(number);
    const auto next = [&] {
        const std::size_t number = caller->receive();
        const auto now = Clock::now();
        const auto latency = now - std::exchange(sent.at(number), now);
        caller->send(number);
        return latency;
    };
    for (int i = 0; i < kWarmUp; ++i)
        next();
    std::vector<std::chrono::nanoseconds> latencies;
    latencies.reserve(state.max_iterations);
    for (auto _ : state)
        latencies.push_back(next());
    for (int i = 0; i < window; ++i)
        caller->receive();
    if (server.stop().status != 0)
        throw std::runtime_error("the server process ended with a failure");

    state.SetItemsProcessed(state.iterations());
    addPercentiles(state, "answer", std::move(latencies));
}

} // namespace bench
