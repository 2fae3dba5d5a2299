// The library in one program: a service, its callers and their channel in the same process.

#include "ServiceExecutor.h"
#include "ServiceThreadPool.h"
#include "channels/queue/MessageQueue.h"
#include "channels/queue/QueueChannel.h"
#include "framework/Threader.h"
#include "runtime/values/ServiceContext.h"

#include <cstdio>
#include <memory>
#include <semaphore>
#include <string>

namespace {

constexpr int kRequests = 3; // of each source

/// Counts the visits of each guest. One guest's requests run one at a time, and each counter is
/// used for one guest only, so it needs no lock.
class Visits : public Executable {
public:
    std::string visit(std::string_view guest) {
        return std::string(guest) + " was here " +
               std::to_string(++(guest == "anna" ? m_anna : m_ben)) + " times";
    }
    void timerEvent(int) override {}

private:
    int m_anna = 0;
    int m_ben = 0;
};

CommsChannelDataContainerMessage request(const std::string& guest, long id) {
    CommsChannelDataContainerMessage msg;
    msg.sourceChannel() = guest;
    msg.interface() = "Visits";
    msg.protocol() = "text";
    msg.setRequestId(id);
    msg.setData(guest);
    return msg;
}

} // namespace

int main() {
    std::counting_semaphore<> answers(0);
    const auto printAnswer = [&answers](const mirel::Answer& answer) {
        std::printf("request %ld: %s\n", answer.requestId, answer.data.c_str());
        answers.release();
    };

    // Destroyed in the reverse order: the executor first, the context last.
    mirel::ServiceContext context;
    context.addHandler<Visits>("Visits", "text", [](Visits& visits, std::string_view guest) {
        return visits.visit(guest);
    });
    Visits service;
    ServiceThreadPool pool(4, nullptr);
    const auto queue = std::make_shared<mirel::MessageQueue>(100);
    auto channel = std::make_unique<mirel::QueueChannel>(queue, printAnswer);
    channel->explainBy([&context](const std::string& interface, const std::string& protocol) {
        return context.whyUnserved("Visits", interface, protocol);
    });
    ServiceExecutor executor(&service, channel.release(), "Visits", &context, &pool, nullptr, true);

    Threader threader;
    unsigned long threadId = 0;
    executor.startThread(threader, threadId);
    for (long id = 1; id <= kRequests; ++id) {
        queue->send(request("anna", id));
        queue->send(request("ben", 10 + id));
    }
    for (int i = 0; i < 2 * kRequests; ++i)
        answers.acquire();

    executor.shutdown(); // reads no more
    pool.shutdown();     // its workers have ended; now the executor may go
}
