#pragma once

// What the tests of the library share: a channel, a context, invokers and services whose behaviour
// each test chooses, and recorders that tests wait on.

#include "ServiceExecCallbackIfc.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/CommsChannelIfc.h"
#include "framework/FrameworkContext.h"
#include "framework/InvokeInterceptorContext.h"
#include "framework/InvokeInterceptorDispatcher.h"
#include "framework/Invoker.h"
#include "framework/InvokerResponse.h"
#include "framework/MirelException.h"
#include "framework/Serializer.h"
#include "framework/Service.h"
#include "runtime/reports/LogControl.h"
#include "runtime/reports/Reports.h"
#include "runtime/values/AnsweringChannel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

using Message = CommsChannelDataContainerMessage;

constexpr std::chrono::seconds kPatience{20}; ///< for what must happen

inline MirelThreadPriority priorityOf(int number) { return MirelThreadPriority(number); }

/// What happened, in order, on whatever thread.
class Events {
public:
    void add(std::string event) {
        std::lock_guard lock(m_mutex);
        m_events.push_back(std::move(event));
        m_changed.notify_all();
    }
    std::vector<std::string> all() const {
        std::lock_guard lock(m_mutex);
        return m_events;
    }
    /// Waits until there are `count` events; returns what there is then.
    std::vector<std::string> waitFor(std::size_t count) const {
        std::unique_lock lock(m_mutex);
        EXPECT_TRUE(m_changed.wait_for(lock, kPatience, [&] { return m_events.size() >= count; }))
            << "waited for " << count << " events";
        return m_events;
    }
    void clear() {
        std::lock_guard lock(m_mutex);
        m_events.clear();
    }

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<std::string> m_events;
};

using EventList = std::vector<std::string>;

/// Closed until opened; then open for good.
class Gate {
public:
    void open() {
        std::lock_guard lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }
    void pass() {
        std::unique_lock lock(m_mutex);
        EXPECT_TRUE(m_changed.wait_for(lock, kPatience, [&] { return m_open; }));
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false;
};

/// All lines of all levels while it lives, as "LEVEL text".
class LogCapture {
public:
    explicit LogCapture(const std::string& levels = "6") {
        mirel::setLogLevels(levels);
        m_former = mirel::setLogSink([this](const mirel::LogLine& line) {
            if (throwsOn(line.text))
                throw 5;
            lines.add(std::to_string(line.level) + " " + std::string(line.text));
            files.add(line.file);
        });
    }
    ~LogCapture() {
        mirel::setLogSink(std::move(m_former));
        mirel::setLogLevels("3");
    }
    /// The captured texts that contain `part`, in order.
    EventList with(const std::string& part) const {
        EventList found;
        for (const std::string& line : lines.all())
            if (line.find(part) != std::string::npos)
                found.push_back(line);
        return found;
    }
    /// From now on logging throws at each line that contains `part`. Null: at none.
    void throwOn(const char* part) { m_throwOn = part; }

    Events lines;
    Events files; ///< the source file of each line

private:
    bool throwsOn(std::string_view text) const {
        const char* const part = m_throwOn;
        return part && text.find(part) != std::string_view::npos;
    }

    std::atomic<const char*> m_throwOn{nullptr};
    mirel::LogSink m_former;
};

/// Texts of all published reports while it lives; " <- CAUSE" is appended when there is one.
class ReportCapture {
public:
    ReportCapture() {
        mirel::writeReportsToLog(false);
        m_subscription = mirel::subscribeToReports([this](const MirelException& report) {
            reports.add(report.message() +
                        (report.cause() ? " <- " + report.cause()->message() : std::string()));
        });
    }
    ~ReportCapture() {
        m_subscription = mirel::ReportSubscription();
        mirel::writeReportsToLog(true);
    }
    Events reports;

private:
    mirel::ReportSubscription m_subscription;
};

/// A channel that delivers anything, valid or not, and keeps the answers.
class TestChannel : public mirel::AnsweringChannel {
public:
    struct State : mirel::AnswerSink {
        std::mutex mutex;
        std::condition_variable changed;
        std::deque<Message> messages;
        bool closed = false;
        bool deleted = false;
        int reads = 0;
        Events answers; ///< "SOURCE/ID ok DATA" or "SOURCE/ID failed TEXT"

        void answer(mirel::Answer answer) override {
            answers.add(answer.sourceChannel + "/" + std::to_string(answer.requestId) +
                        (answer.succeeded ? " ok " : " failed ") + answer.data +
                        (deleted ? " (after the channel)" : ""));
        }
        bool claim(const std::string&) override { return ours; }
        std::atomic<bool> ours{true}; ///< requests may run here
        void send(Message message) {
            std::lock_guard lock(mutex);
            messages.push_back(std::move(message));
            waiting = false;
            changed.notify_all();
        }
        /// Waits until the executor is in its next read, having dispatched all that was sent.
        void waitUntilAllDispatched() {
            std::unique_lock lock(mutex);
            EXPECT_TRUE(changed.wait_for(lock, kPatience, [&] { return waiting; }));
        }
        bool waiting = false; ///< in a read, with nothing sent that it could return
    };

    explicit TestChannel(std::shared_ptr<State> state) : m_state(std::move(state)) {}
    ~TestChannel() override { m_state->deleted = true; }

    bool readMessage(Message& message) override {
        std::unique_lock lock(m_state->mutex);
        ++m_state->reads;
        m_state->waiting = m_state->messages.empty();
        m_state->changed.notify_all();
        m_state->changed.wait(lock, [&] { return m_state->closed || !m_state->messages.empty(); });
        m_state->waiting = false;
        if (m_state->closed)
            return false;
        message = std::move(m_state->messages.front());
        m_state->messages.pop_front();
        return true;
    }
    void close() override {
        std::lock_guard lock(m_state->mutex);
        m_state->closed = true;
        m_state->changed.notify_all();
    }
    std::shared_ptr<mirel::AnswerSink> answerSink() override { return m_state; }

private:
    const std::shared_ptr<State> m_state;
};

/// A completion callback made of a function.
class TestCallback : public ServiceExecCallbackIfc {
public:
    explicit TestCallback(std::function<bool(ServiceThreadIfc*)> function)
        : m_function(std::move(function)) {}
    bool reuseThreadForDelayedMessage(ServiceThreadIfc* thread) override {
        return m_function(thread);
    }

private:
    const std::function<bool(ServiceThreadIfc*)> m_function;
};

/// Counts its destruction, and may throw from it.
class CountedResponse : public InvokerResponse {
public:
    explicit CountedResponse(int& destroyed, bool throwing = false)
        : CountedResponse(destroyed, throwing, std::string()) {}
    ~CountedResponse() noexcept(false) override {
        ++m_destroyed;
        if (m_throwing)
            throw std::runtime_error("response destructor");
    }

private:
    CountedResponse(int& destroyed, bool throwing, std::string none)
        : InvokerResponse(nullptr, none, none, none, none, 0, none, none, 0),
          m_destroyed(destroyed),
          m_throwing(throwing) {}
    int& m_destroyed;
    const bool m_throwing;
};

/// An invoker made of a function.
class TestInvoker : public Invoker {
public:
    using Handler = std::function<void(Executable*, std::string, InvokerResponse*)>;
    explicit TestInvoker(Handler handler) : m_handler(std::move(handler)) {}

    void handleMessage(Executable* service, const char* data, int length,
                       InvokerResponse* response) override {
        EXPECT_EQ('\0', data[length]);
        m_handler(service, std::string(data, static_cast<std::size_t>(length)), response);
    }
    void initialise(FrameworkContext* context) override {
        if (onInitialise)
            onInitialise(context);
    }
    std::function<void(FrameworkContext*)> onInitialise;

private:
    const Handler m_handler;
};

/// A service whose timer handling is a function.
class TestService : public Executable {
public:
    explicit TestService(std::function<void(int)> onTimer = {}) : m_onTimer(std::move(onTimer)) {}
    void timerEvent(int timerId) override { m_onTimer(timerId); }

private:
    const std::function<void(int)> m_onTimer;
};

/// A service that takes legacy messages.
class TestLegacyService : public Service {
public:
    using Handler = std::function<void(std::string, std::string, CommsChannelIfc*, Message&)>;
    explicit TestLegacyService(Handler handler) : m_handler(std::move(handler)) {}
    void timerEvent(int) override {}
    void handleMessage(const char* data, int length, std::string source, CommsChannelIfc* channel,
                       Message& message) override {
        m_handler(std::string(data, static_cast<std::size_t>(length)), source, channel, message);
    }

private:
    const Handler m_handler;
};

/// Writes each dispatch into a list as "point N", and does what the test adds.
class TestDispatcher : public InvokeInterceptorDispatcher {
public:
    explicit TestDispatcher(Events& events) : m_events(events) {}
    void dispatch(InvokeInterceptorContext* context) override {
        m_events.add("point " + std::to_string(context->interceptionPoint()));
        if (onDispatch)
            onDispatch(*context);
    }
    std::function<void(InvokeInterceptorContext&)> onDispatch;

private:
    Events& m_events;
};

/// Finds the invokers that the test has put in, by "interface/protocol".
class TestContext : public FrameworkContext {
public:
    Invoker* findInvoker(const std::string& interface, const std::string& protocol) override {
        const auto found = invokers.find(interface + "/" + protocol);
        return found == invokers.end() ? nullptr : found->second;
    }
    Executable* createService(ServiceExecutor* executor, std::string library, std::string creator,
                              CommsChannelIfc* channel, std::string interface) override {
        creators.emplace_back(executor, channel);
        created.push_back(library + " " + creator + " " + interface);
        return onCreate ? onCreate() : nullptr;
    }
    std::map<std::string, Invoker*> invokers;
    std::function<Executable*()> onCreate;
    std::vector<std::string> created;
    std::vector<std::pair<ServiceExecutor*, CommsChannelIfc*>> creators; ///< as they were passed
};

inline Message requestFrom(const std::string& source, const std::string& data, int priority = 1,
                           long id = 1) {
    Message message;
    message.sourceChannel() = source;
    message.channel() = "here";
    message.interface() = "Ifc";
    message.protocol() = "text";
    message.setPriority(priorityOf(priority));
    message.setRequestId(id);
    message.setData(data);
    return message;
}

inline Message timerMessage(int timerId, int priority = 1) {
    Message message;
    message.setMsgType(6);
    message.sourceChannel() = "clock";
    message.channel() = "here";
    message.setPriority(priorityOf(priority));
    message.setData(Serializer::serialize(timerId));
    return message;
}

/// One of the kinds of exception that service code throws in these tests, and how the library must
/// log and report it.
struct Thrown {
    const char* kind; ///< as the log names it
    std::function<void()> raise;
    const char* prefix; ///< how the report begins; %s: the class that caught it
    const char* cause;  ///< of the report: " <- TEXT", or empty when there is none
};

inline const std::vector<Thrown>& everyTier() {
    static const std::vector<Thrown> tiers{
        {"MirelException", [] { throw MirelException("no funds", "f", 1); },
         "Exception caught in %s: ", " <- no funds"},
        {"stdlib exception", [] { throw std::runtime_error("no luck"); },
         "Exception caught in %s: no luck", ""},
        {"stdlib exception", [] { throw std::bad_alloc(); },
         "Exception caught in %s: std::bad_alloc", ""},
        {"unknown exception", [] { throw 5; }, "Unknown Exception caught in %s: ", ""},
    };
    return tiers;
}

inline std::string withClass(std::string prefix, const std::string& className) {
    return prefix.replace(prefix.find("%s"), 2, className);
}
