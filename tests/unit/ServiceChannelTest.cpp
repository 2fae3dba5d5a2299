// What all channels have in common, tested with the one that needs no transport.

#include "ServiceExecutor.h"
#include "channels/FlowLimit.h"
#include "channels/LimitedPool.h"
#include "channels/queue/MessageQueue.h"
#include "channels/queue/QueueChannel.h"
#include "framework/Threader.h"
#include "runtime/threads/ThreadStartHook.h"
#include "runtime/values/ServiceContext.h"
#include "runtime/values/ThreadRefused.h"
#include "tests/unit/Support.h"

#include <cerrno>
#include <future>

namespace {

using std::chrono::milliseconds;

constexpr std::size_t kQueued = 5;
constexpr unsigned long kLimit = 3;

/// A service on a channel with a limit. Its requests and timer events wait until the gate is open.
class ServiceChannelTest : public testing::Test {
protected:
    ServiceChannelTest() {
        m_context.addHandler<TestService>("Ifc", "text", [this](TestService&, std::string_view d) {
            m_gate.pass();
            return std::string(d);
        });
        m_context.addHandler<TestService>("Ifc", "json",
                                          [](TestService&, std::string_view) { return "{}"; });
        m_context.addHandler<TestService>("Hidden", "text",
                                          [](TestService&, std::string_view) { return ""; });
        auto channel =
            std::make_unique<mirel::QueueChannel>(m_queue, [this](const mirel::Answer& answer) {
                m_answers.add(answer.sourceChannel + (answer.succeeded ? ": " : " failed: ") +
                              answer.data);
            });
        channel->limitBy(m_limit);
        channel->explainBy([this](const std::string& interface, const std::string& protocol) {
            return m_context.whyUnserved("Ifc", interface, protocol);
        });
        m_executor.emplace(&m_service, channel.release(), "Ifc", &m_context, &m_pool, nullptr,
                           true);
        Threader threader;
        unsigned long id = 0;
        m_executor->startThread(threader, id);
    }

    ~ServiceChannelTest() override {
        m_gate.open();
        m_executor->shutdown();
        m_pool.shutdown();
    }

    const std::shared_ptr<mirel::FlowLimit> m_limit =
        std::make_shared<mirel::FlowLimit>(kLimit, kLimit);
    const std::shared_ptr<mirel::MessageQueue> m_queue =
        std::make_shared<mirel::MessageQueue>(kQueued);
    Events m_answers;
    Gate m_gate;
    mirel::ServiceContext m_context;
    TestService m_service{[this](int) { m_gate.pass(); }};
    mirel::LimitedPool m_pool{2, nullptr, m_limit};
    std::optional<ServiceExecutor> m_executor;
};

TEST_F(ServiceChannelTest, CallersThatAreFasterThanTheServiceAreMadeToWait) {
    const auto expectRoomFor = [this](std::size_t count, const std::function<Message()>& next) {
        Message message;
        for (std::size_t i = 0; i < count; ++i) {
            message = next();
            ASSERT_TRUE(m_queue->trySend(message, kPatience)) << i;
        }
        // Without the limit, the executor would take on one after the other.
        EXPECT_FALSE(m_queue->trySend(message, milliseconds(50)));
    };
    const std::size_t most = kLimit + kQueued;
    int sent = 0;
    expectRoomFor(most, [&] { return requestFrom("one", std::to_string(++sent)); });
    m_gate.open();
    EventList expected;
    for (std::size_t i = 1; i <= most; ++i)
        expected.push_back("one: " + std::to_string(i));
    EXPECT_EQ(expected, m_answers.waitFor(most));
}

TEST_F(ServiceChannelTest, TimerEventsAreLimitedByTheirWorkers) {
    for (std::size_t i = 0; i < kLimit + kQueued; ++i)
        ASSERT_TRUE(m_queue->send(timerMessage(1)));
    Message oneMore = timerMessage(1);
    EXPECT_FALSE(m_queue->trySend(oneMore, milliseconds(50)));
    EXPECT_EQ(kLimit, m_limit->mostWorkers());
}

/// For a claim about time that would else be waited for in vain.
bool deliversNow(mirel::FlowLimit& limit) {
    std::atomic<bool> closed{false};
    auto waiting = std::async(std::launch::async, [&] { limit.waitForRoom(closed); });
    const bool delivers = waiting.wait_for(kPatience) == std::future_status::ready;
    closed = true;
    limit.wakeAll();
    return delivers;
}

TEST(LimitedPool, AWorkerThatEndsBeforeItHasBegunCountsNoMore) {
    const auto limit = std::make_shared<mirel::FlowLimit>(1, 1);
    mirel::LimitedPool pool(1, nullptr, limit);
    pool.getThread(true); // never handed its work
    pool.shutdown();
    EXPECT_TRUE(deliversNow(*limit));
}

TEST(DeliveredRequests, ARequestWhoseCallerCannotBeToldIsDoneAllTheSame) {
    const auto limit = std::make_shared<mirel::FlowLimit>(1, 1);
    const auto queue = std::make_shared<mirel::MessageQueue>(1);
    mirel::QueueChannel channel(queue, [](const mirel::Answer&) { throw std::bad_alloc(); });
    channel.limitBy(limit);
    Message m = requestFrom("s", "");
    InvokerResponse(&channel, m.sourceChannel(), m.callbackChannel(), m.protocol(), m.interface(),
                    1, m.proxyCallMode(), m.remoteContext(), 0);
    EXPECT_TRUE(deliversNow(*limit));
}

TEST_F(ServiceChannelTest, SaysWhatIsMissingAndWhatThereIs) {
    const std::tuple<const char*, const char*, const char*> requests[] = {
        {"Other", "text", "s failed: the service has no interface \"Other\"; it has Ifc"},
        {"Hidden", "text", "s failed: the service has no interface \"Hidden\"; it has Ifc"},
        {"Ifc", "xml", "s failed: interface \"Ifc\" has no protocol \"xml\"; it has json, text"},
    };
    EventList expected;
    for (const auto& [interface, protocol, answer] : requests) {
        Message request = requestFrom("s", "");
        request.interface() = interface;
        request.protocol() = protocol;
        m_queue->send(std::move(request));
        expected.emplace_back(answer);
        EXPECT_EQ(expected, m_answers.waitFor(expected.size()));
    }
}

TEST_F(ServiceChannelTest, WhoIsLeftWithoutAThreadIsToldThatNothingHasRun) {
    m_context.addInvoker(
        "Ifc", "starts",
        std::make_unique<TestInvoker>([](Executable*, const std::string&, InvokerResponse*) {
            throw mirel::ThreadRefused("a thread of the service", __FILE__, __LINE__);
        }));
    Message itself = requestFrom("s", "");
    itself.protocol() = "starts";
    m_queue->send(std::move(itself));
    m_answers.waitFor(1);

    m_queue->send(requestFrom("s", "first"));
    m_queue->send(requestFrom("s", "held back", 2));
    Message unserved = requestFrom("s", ""); // its answer shows that the others have been read
    unserved.interface() = "Hidden";
    m_queue->send(std::move(unserved));
    m_answers.waitFor(2);
    mirel::setThreadStartHook([] { return EAGAIN; });
    m_gate.open();
    m_answers.waitFor(4);
    m_queue->send(requestFrom("other", "", 2));
    EventList expected{"s failed: the request was not answered: it failed or was dropped",
                       "s failed: the service has no interface \"Hidden\"; it has Ifc", "s: first"};
    for (const char* const refused : {"s", "other"})
        expected.push_back(std::string(refused) +
                           " failed: the request has not run, because the system is short of "
                           "threads; it can be sent again");
    EXPECT_EQ(expected, m_answers.waitFor(5));
    mirel::setThreadStartHook({});
}

/// An invoker that does not ask itself whether a request may run here.
class PlainInvoker : public Invoker {
public:
    explicit PlainInvoker(int& runs) : m_runs(runs) {}
    void handleMessage(Executable*, const char*, int, InvokerResponse* response) override {
        ++m_runs;
        delete response;
    }
    void initialise(FrameworkContext*) override {}

private:
    int& m_runs;
};

TEST(Claim, IsAskedForWhateverTheInvoker) {
    mirel::ServiceContext context;
    int runs = 0;
    context.addInvoker("Ifc", "text", std::make_unique<PlainInvoker>(runs));
    const auto state = std::make_shared<TestChannel::State>();
    TestChannel channel(state);
    for (const bool ours : {true, false}) {
        state->ours = ours;
        Message m = requestFrom("s", "");
        context.findInvoker("Ifc", "text")
            ->handleMessage(nullptr, "", 0,
                            new InvokerResponse(&channel, m.sourceChannel(), m.callbackChannel(),
                                                m.protocol(), m.interface(), 1, m.proxyCallMode(),
                                                m.remoteContext(), 0));
    }
    EXPECT_EQ(1, runs);
    EXPECT_EQ(1U, state->answers.all().size()); // the one that ran, unanswered
}

} // namespace
