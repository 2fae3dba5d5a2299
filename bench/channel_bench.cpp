// A request of 64 bytes to another process over ipc:// and its answer: through the channel, a
// service executor and its workers, against a bare ZeroMQ echo. One in flight, and saturated.

#include "bench/Echo.h"
#include "bench/Percentiles.h"
#include "bench/ServerProcess.h"

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace {

using namespace bench;
using Clock = std::chrono::steady_clock;

constexpr const char* kServe = "--serve"; ///< of the other process: kind and URL follow
constexpr int kWarmUp = 2000;             ///< requests before those that are measured

constexpr std::array<Echo, 2> kEchoes{{
    {"mirel", &serveMirelEcho, &callMirelEcho},
    {"bare", &serveBareEcho, &callBareEcho},
}};

/// Where the sockets of this run are.
class PrivateFolder {
public:
    PrivateFolder() : m_path((std::filesystem::temp_directory_path() / "bench-XXXXXX").string()) {
        if (!mkdtemp(m_path.data()))
            throw std::runtime_error("no temporary folder can be made");
    }
    ~PrivateFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

/// Keeps `window` requests in flight: each is sent again as soon as it is answered. One iteration is
/// one answer.
void measure(benchmark::State& state, const Echo& echo, const std::string& folder, int window,
             int sources) {
    const std::string url = "ipc://" + folder + "/" + echo.name;
    const ServerProcess server({kServe, echo.name, url});
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

    state.SetItemsProcessed(state.iterations());
    addPercentiles(state, "answer", std::move(latencies));
}

void add(const std::string& cell, const std::string& folder, int window, int sources) {
    for (const Echo& echo : kEchoes)
        benchmark::RegisterBenchmark(
            (cell + echo.name).c_str(),
            [=, &echo](benchmark::State& state) { measure(state, echo, folder, window, sources); })
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond);
}

void serve(const std::string& name, const std::string& url) {
    const auto echo = std::find_if(kEchoes.begin(), kEchoes.end(),
                                   [&name](const Echo& kind) { return kind.name == name; });
    if (echo == kEchoes.end())
        throw std::runtime_error("there is no service " + name);
    const auto service = echo->serve(url);
    ServerProcess::waitForEnd();
}

void run(int argc, char** argv) {
    const PrivateFolder folder;
    add("channel/closed/", folder.path(), 1, 1);
    for (const int sources : {1, 8})
        add("channel/saturated/" + std::to_string(sources) + "/", folder.path(), 100, sources);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        throw std::runtime_error("an argument is not known");
    benchmark::RunSpecifiedBenchmarks();
}

} // namespace

int main(int argc, char** argv) {
    try {
        if (argc == 4 && std::string(argv[1]) == kServe)
            serve(argv[2], argv[3]);
        else
            run(argc, argv);
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << "channel_bench: " << failure.what() << '\n';
        return 2;
    }
}
