#include "bench/Echo.h"
#include "bench/SharedPool.h"
#include "bench/Workload.h"
#include "framework/Executable.h"
#include "standalone/ZmqCaller.h"
#include "standalone/ZmqChannel.h"

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace bench {

namespace {

constexpr const char* kProtocol = "echo";
constexpr int kWorkersKept = 16; // as mirel-host does
constexpr std::chrono::milliseconds kPatience{5000};

class MirelService : public EchoService {
public:
    explicit MirelService(const std::string& url) : m_workload(HandlerCost{}) {
        m_workload.context().addHandler<Executable>(
            Workload::kInterface, kProtocol,
            [](Executable&, std::string_view data) { return std::string(data); });
        mirel::ZmqChannelOptions options;
        options.url = url;
        m_pool.serve(std::make_unique<mirel::ZmqChannel>(options), m_workload);
    }

private:
    Workload m_workload;
    SharedPool m_pool{kWorkersKept};
};

class MirelCaller : public EchoCaller {
public:
    MirelCaller(const std::string& url, int requests, int sources)
        : m_caller(optionsFor(url)),
          m_requests(Workload::requests(requests, sources)) {
        for (std::size_t number = 0; number < m_requests.size(); ++number) {
            m_requests[number].protocol() = kProtocol;
            m_requests[number].setData(dataOf(number));
        }
    }

    void send(std::size_t number) override {
        if (!m_caller.send(m_requests.at(number), kPatience))
            throw std::runtime_error("the service takes no request");
    }

    std::size_t receive() override {
        const std::optional<mirel::Answer> answer = m_caller.receive(kPatience);
        if (!answer)
            throw std::runtime_error("the service does not answer");
        if (!answer->succeeded)
            throw std::runtime_error("a request failed: " + answer->data);
        return numberOf(answer->data);
    }

private:
    static mirel::ZmqCallerOptions optionsFor(const std::string& url) {
        mirel::ZmqCallerOptions options;
        options.url = url;
        return options;
    }

    mirel::ZmqCaller m_caller;
    std::vector<CommsChannelDataContainerMessage> m_requests;
};

} // namespace

std::unique_ptr<EchoService> serveMirelEcho(const std::string& url) {
    return std::make_unique<MirelService>(url);
}

std::unique_ptr<EchoCaller> callMirelEcho(const std::string& url, int requests, int sources) {
    return std::make_unique<MirelCaller>(url, requests, sources);
}

} // namespace bench
