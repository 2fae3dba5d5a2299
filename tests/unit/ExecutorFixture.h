#pragma once

#include "ServiceExecutor.h"
#include "ServiceThreadPool.h"
#include "Support.h"
#include "framework/CriticalSection.h"
#include "framework/Threader.h"

/// A friend of the executor, which reads its private containers.
class ExecutorInspector {
public:
    static bool isClean(ServiceExecutor& executor) {
        CriticalSection lock(executor.m_channelLock);
        return executor.m_threadChannels.empty() && executor.m_busyChannels.empty() &&
               executor.m_delayedMessages.empty();
    }
    static bool isBusy(ServiceExecutor& executor, const std::string& channel) {
        CriticalSection lock(executor.m_channelLock);
        return executor.isThreadAllocatedToChannel(channel);
    }
    static std::size_t heldBack(ServiceExecutor& executor, const std::string& channel) {
        CriticalSection lock(executor.m_channelLock);
        const auto found = executor.m_delayedMessages.find(channel);
        return found == executor.m_delayedMessages.end() ? 0 : found->second.size();
    }
};

/// An executor on a `TestChannel`, with everything around it.
class ExecutorTest : public testing::Test {
protected:
    ~ExecutorTest() override { stop(); }

    /// For a service object that exists.
    void start(Executable* executable, bool multiThreaded) {
        executor = std::make_unique<ServiceExecutor>(executable, makeChannel(), "Ifc", &context,
                                                     &pool, dispatcher, multiThreaded);
        startThread();
    }
    /// A channel object on `channel`, which the executor is to own.
    CommsChannelIfc* makeChannel() { return comms = new TestChannel(channel); }

    void startThread() {
        Threader threader;
        unsigned long id = 0;
        EXPECT_EQ(0, executor->startThread(threader, id));
        EXPECT_EQ(id, executor->threadId());
    }
    /// Sends the messages and waits until all have been dispatched.
    void send(std::initializer_list<Message> messages) {
        for (const Message& message : messages)
            channel->send(message);
        channel->waitUntilAllDispatched();
    }
    /// In the order that the executor asks for.
    void stop() {
        if (!executor)
            return;
        executor->shutdown();
        pool.shutdown();
        executor.reset();
    }

    Events events;
    std::shared_ptr<TestChannel::State> channel = std::make_shared<TestChannel::State>();
    CommsChannelIfc* comms = nullptr; ///< the last one made
    TestContext context;
    InvokeInterceptorDispatcher* dispatcher = nullptr;
    ServiceThreadPool pool{4, nullptr};
    TestService service{[this](int id) { events.add("timer " + std::to_string(id)); }};
    TestInvoker invoker{
        [this](Executable* executable, std::string data, InvokerResponse* response) {
            EXPECT_NE(nullptr, executable);
            events.add(data);
            response->answer("did " + data);
            delete response;
        }};
    std::unique_ptr<ServiceExecutor> executor;
};
