// The library runs each kind of message on a provider that it was not written beside.

#include "ServiceExecutor.h"
#include "ServiceThreadPool.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/CommsChannelIfc.h"
#include "framework/FrameworkContext.h"
#include "framework/Invoker.h"
#include "framework/InvokerResponse.h"
#include "framework/Service.h"
#include "framework/Threader.h"

#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <string>
#include <vector>

namespace {

constexpr int kTimerEvent = 6;
constexpr int kRequests = 20;

/// Delivers requests of two sources in turn, then a timer event, then a legacy message.
class Messages : public CommsChannelIfc {
public:
    bool readMessage(CommsChannelDataContainerMessage& msg) override {
        const int number = m_next++;
        if (number < kRequests) {
            msg.protocol() = "text";
            msg.interface() = "Notes";
            msg.sourceChannel() = number % 2 == 0 ? "even" : "odd";
            msg.setData(std::to_string(number));
        } else if (number == kRequests) {
            msg.setMsgType(kTimerEvent);
            msg.setData("7");
        } else if (number == kRequests + 1) {
            msg.setData("legacy");
        } else {
            m_closed.get_future().wait();
            return false;
        }
        return true;
    }
    void close() override { m_closed.set_value(); }

private:
    int m_next = 0;
    std::promise<void> m_closed;
};

/// Records what it is given, each kind of message separately, and tells when a kind is complete.
class Notes : public Service {
public:
    void note(int number) {
        const std::lock_guard lock(m_mutex);
        m_numbers[number % 2].push_back(number);
        if (++m_count == kRequests)
            requests.set_value();
    }
    void timerEvent(int id) override { timer.set_value(id); }
    void handleMessage(const char* data, int length, std::string, CommsChannelIfc*,
                       CommsChannelDataContainerMessage&) override {
        legacy.set_value(std::string(data, static_cast<std::size_t>(length)));
    }
    std::vector<int> numbers(int rest) const { return m_numbers[rest]; }

    std::promise<void> requests;
    std::promise<int> timer;
    std::promise<std::string> legacy;

private:
    std::mutex m_mutex;
    int m_count = 0;
    std::vector<int> m_numbers[2];
};

class NotesInvoker : public Invoker {
public:
    void handleMessage(Executable* service, const char* data, int,
                       InvokerResponse* response) override {
        const int number = std::stoi(data);
        static_cast<Notes*>(service)->note(number);
        if (number % 5 == 0)
            throw number; // a report, and nothing else
        delete response;
    }
    void initialise(FrameworkContext*) override {}
};

class NotesContext : public FrameworkContext {
public:
    Invoker* findInvoker(const std::string&, const std::string&) override { return &m_invoker; }
    Executable* createService(ServiceExecutor*, std::string, std::string, CommsChannelIfc*,
                              std::string) override {
        return nullptr;
    }

private:
    NotesInvoker m_invoker;
};

TEST(TinyProvider, RunsEachKindOfMessage) {
    for (const bool multiThreaded : {false, true}) {
        Notes notes;
        NotesContext context;
        ServiceThreadPool pool(1, nullptr); // so there is a temporary worker, too
        ServiceExecutor executor(&notes, new Messages, "Notes", &context, &pool, nullptr,
                                 multiThreaded);
        Threader threader;
        unsigned long threadId = 0;
        executor.startThread(threader, threadId);
        notes.requests.get_future().wait();
        EXPECT_EQ(7, notes.timer.get_future().get());
        EXPECT_EQ("legacy", notes.legacy.get_future().get());
        executor.shutdown();
        pool.shutdown();
        for (const int rest : {0, 1}) {
            std::vector<int> expected;
            for (int number = rest; number < kRequests; number += 2)
                expected.push_back(number);
            EXPECT_EQ(expected, notes.numbers(rest));
        }
        EXPECT_FALSE(executor.hasStarted());
    }
}

} // namespace
