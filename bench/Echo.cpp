#include "bench/Echo.h"

#include "bench/MirelContestant.h"
#include "bench/Workload.h"
#include "testkit/Process.h"

#include <csignal>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <utility>

namespace bench {

namespace {

constexpr std::size_t kSize = 64;
constexpr std::chrono::milliseconds kPatience{5000};
constexpr const char* kServe = "--serve"; ///< of the other process: kind and URL follow
constexpr const char* kServing = "serving";
constexpr int kWarmUp = 2000; ///< requests before those that are measured

struct MirelService {
    Workload workload;
    MirelContestant library{64}; // as mirel-host, unless told otherwise
};

class MirelCaller : public EchoCaller {
public:
    MirelCaller(std::unique_ptr<mirel::Caller> caller, int requests, int sources)
        : m_caller(std::move(caller)),
          m_requests(Workload::requests(requests, sources)) {
        const std::vector<std::string> data = dataOf(requests);
        for (std::size_t number = 0; number < m_requests.size(); ++number)
            m_requests[number].setData(data[number]);
    }

    void send(std::size_t number) override {
        CommsChannelDataContainerMessage& request = m_requests.at(number);
        request.setRequestId(++m_lastId); // with the same one it would be a repetition
        if (!m_caller->send(request, kPatience))
            throw std::runtime_error("the service takes no request");
    }

    std::size_t receive() override {
        const std::optional<mirel::Answer> answer = m_caller->receive(kPatience);
        if (!answer)
            throw std::runtime_error("the service does not answer");
        if (!answer->succeeded)
            throw std::runtime_error("a request failed: " + answer->data);
        return numberOf(answer->data);
    }

private:
    const std::unique_ptr<mirel::Caller> m_caller;
    std::vector<CommsChannelDataContainerMessage> m_requests;
    long m_lastId = 0;
};

} // namespace

std::vector<std::string> EchoCaller::dataOf(int requests) {
    std::vector<std::string> all(static_cast<std::size_t>(requests), std::string(kSize, 'x'));
    for (std::size_t number = 0; number < all.size(); ++number)
        std::memcpy(all[number].data(), &number, sizeof number);
    return all;
}

std::size_t EchoCaller::numberOf(std::string_view data) {
    if (data.size() != kSize || data.back() != 'x')
        throw std::runtime_error("an answer is not what was sent");
    std::size_t number = 0;
    std::memcpy(&number, data.data(), sizeof number);
    return number;
}

EchoService serveMirelEcho(std::unique_ptr<CommsChannelIfc> channel) {
    auto service = std::make_shared<MirelService>();
    service->workload.setHandler<Executable>(
        [](Executable&, std::string_view data) { return std::string(data); });
    service->library.serve(std::move(channel), service->workload);
    return service;
}

std::unique_ptr<EchoCaller> callMirelEcho(std::unique_ptr<mirel::Caller> caller, int requests,
                                          int sources) {
    return std::make_unique<MirelCaller>(std::move(caller), requests, sources);
}

int runEchoProgram(int argc, char** argv, std::span<const Echo> echoes,
                   const std::function<void()>& add) {
    for (const Echo& echo : echoes)
        if (argc == 4 && std::string_view(argv[1]) == kServe && argv[2] == echo.name) {
            sigset_t stop;
            sigemptyset(&stop);
            sigaddset(&stop, SIGTERM);
            sigprocmask(SIG_BLOCK, &stop, nullptr); // the service's threads, too, leave it to us
            const auto service = echo.serve(argv[3]);
            std::cout << kServing << std::endl;
            int signal = 0;
            sigwait(&stop, &signal);
            return 0;
        }
    add();
    return runBenchmarks(argc, argv);
}

void measureEcho(benchmark::State& state, const Echo& echo, const std::string& url, int window,
                 int sources) {
    // Its real name, which a profiler that follows the child needs.
    mirel::Process server(
        {std::filesystem::read_symlink("/proc/self/exe"), kServe, std::string(echo.name), url});
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
    Durations latencies;
    latencies.reserve(state.max_iterations);
    for (auto _ : state)
        latencies.push_back(next());
    for (int i = 0; i < window; ++i)
        caller->receive();

    state.SetItemsProcessed(state.iterations());
    addPercentiles(state, {{"answer", latencies}});
}

} // namespace bench
