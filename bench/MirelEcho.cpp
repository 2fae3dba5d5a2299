#include "bench/MirelEcho.h"

#include "bench/SharedPool.h"
#include "bench/Workload.h"
#include "framework/Executable.h"

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {

namespace {

constexpr const char* kProtocol = "echo";
constexpr int kWorkersKept = 16; // as mirel-host does
constexpr std::chrono::milliseconds kPatience{5000};

class MirelService : public EchoService {
public:
    explicit MirelService(std::unique_ptr<CommsChannelIfc> channel) : m_workload(HandlerCost{}) {
        m_workload.context().addHandler<Executable>(
            Workload::kInterface, kProtocol,
            [](Executable&, std::string_view data) { return std::string(data); });
        m_pool.serve(std::move(channel), m_workload);
    }

private:
    Workload m_workload;
    SharedPool m_pool{kWorkersKept};
};

class MirelCaller : public EchoCaller {
public:
    MirelCaller(std::unique_ptr<mirel::Caller> caller, int requests, int sources)
        : m_caller(std::move(caller)),
          m_requests(Workload::requests(requests, sources)) {
        for (std::size_t number = 0; number < m_requests.size(); ++number) {
            m_requests[number].protocol() = kProtocol;
            m_requests[number].setData(dataOf(number));
        }
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

std::unique_ptr<EchoService> serveMirelEcho(std::unique_ptr<CommsChannelIfc> channel) {
    return std::make_unique<MirelService>(std::move(channel));
}

std::unique_ptr<EchoCaller> callMirelEcho(std::unique_ptr<mirel::Caller> caller, int requests,
                                          int sources) {
    return std::make_unique<MirelCaller>(std::move(caller), requests, sources);
}

} // namespace bench
