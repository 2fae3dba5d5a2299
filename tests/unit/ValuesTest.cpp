#include "channels/queue/MessageQueue.h"
#include "channels/queue/QueueChannel.h"
#include "runtime/values/InterceptorList.h"
#include "runtime/values/ServiceContext.h"
#include "tests/unit/Support.h"

#include <climits>
#include <future>
#include <gmock/gmock.h>

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using mirel::MessageQueue;
using mirel::QueueChannel;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

Message request(long id) {
    Message message = requestFrom("source", "", 1, id);
    message.callbackChannel() = "callback";
    return message;
}

TEST(Serializer, ReadsTheIntegersThatItWritesAndNothingElse) {
    int result = 0;
    for (const int value : {0, 127, 128, -32, -33, 255, 256, 65536, INT_MAX, INT_MIN, 5}) {
        std::string data = Serializer::serialize(value);
        Serializer::deserialize(data, result);
        EXPECT_EQ(result, value);
    }
    std::pair<const char*, std::string> bad[] = {
        {"empty", ""},
        {"followed by a byte", "\x05\0"s},
        {"above int", "\xce\x80\0\0\0"s},
        {"nil", "\xc0"},
        {"announced 96 GiB array", "\xdd\xff\xff\xff\xff"},
    };
    for (auto& [what, data] : bad) {
        EXPECT_THROW(Serializer::deserialize(data, result), MirelException) << what;
        EXPECT_EQ(result, 5) << what;
    }
}

TEST(MessageQueue, RefusesWhatWouldEndTheExecutor) {
    Message broken = timerMessage(3);
    broken.setData("soon");
    MessageQueue queue(8);
    for (Message message : {requestFrom("source", "", -1), requestFrom("source", "", 3), broken}) {
        EXPECT_THROW(queue.send(message), MirelException);
        EXPECT_THROW(queue.trySend(message, 0ms), MirelException);
    }
    EXPECT_TRUE(queue.send(timerMessage(3)));
    EXPECT_EQ(queue.takeRest().size(), 1U);
}

TEST(MessageQueue, IsBoundedAndKeepsTheOrder) {
    MessageQueue queue(2);
    EXPECT_TRUE(queue.send(request(1)));
    EXPECT_TRUE(queue.send(request(2)));
    Message third = request(3);
    EXPECT_FALSE(queue.trySend(third, 0ms));
    EXPECT_FALSE(queue.trySend(third, 5ms));
    EXPECT_EQ(third.interface(), "Ifc") << "a message that is not taken stays as it is";

    // A sender that waits goes on when there is room.
    auto sending = std::async(std::launch::async, [&] { return queue.send(third); });
    for (long id = 1; id <= 3; ++id) {
        Message message;
        ASSERT_TRUE(queue.read(message));
        EXPECT_EQ(message.requestId(), id);
    }
    EXPECT_TRUE(sending.get());
}

TEST(MessageQueue, CloseEndsBothSidesAndKeepsTheRest) {
    MessageQueue full(1);
    MessageQueue empty(1);
    Message message;
    ASSERT_TRUE(full.send(request(1)));
    auto sending = std::async(std::launch::async, [&] { return full.send(request(2)); });
    auto reading = std::async(std::launch::async, [&] { return empty.read(message); });
    EXPECT_EQ(reading.wait_for(5ms), std::future_status::timeout);
    full.close();
    empty.close();
    EXPECT_FALSE(sending.get());
    EXPECT_FALSE(reading.get());

    EXPECT_FALSE(full.read(message)) << "although it holds a message";
    EXPECT_FALSE(full.trySend(message, 1h)) << "at once";
    EXPECT_EQ(full.takeRest().size(), 1U);
}

std::unique_ptr<InvokerResponse> response(CommsChannelIfc* from) {
    std::string source = "source", callback = "callback", other;
    return std::make_unique<InvokerResponse>(from, source, callback, other, other, 7, other, other,
                                             0);
}

class Answers : public testing::Test {
protected:
    Events answers; ///< "SOURCE CALLBACK ID ok DATA", or "failed" and the text
    const std::shared_ptr<MessageQueue> queue = std::make_shared<MessageQueue>(8);
    std::unique_ptr<QueueChannel> channel =
        std::make_unique<QueueChannel>(queue, [this](const mirel::Answer& answer) {
            answers.add(answer.sourceChannel + " " + answer.callbackChannel + " " +
                        std::to_string(answer.requestId) +
                        (answer.succeeded ? " ok " : " failed ") + answer.data);
        });
};

TEST_F(Answers, TheFirstDecides) {
    auto first = response(channel.get());
    EXPECT_TRUE(first->answer("data"));
    EXPECT_FALSE(first->answer("other data"));
    EXPECT_FALSE(first->answerError("failure"));
    first.reset();
    EXPECT_THAT(answers.all(), ElementsAre("source callback 7 ok data"));
}

TEST_F(Answers, OutliveTheChannelAndNeedNone) {
    auto late = response(channel.get());
    auto dropped = response(channel.get());
    channel.reset();
    EXPECT_TRUE(late->answer("late"));
    dropped.reset();
    EXPECT_THAT(answers.all(), ElementsAre("source callback 7 ok late",
                                           HasSubstr("7 failed the request was not answered")));
    EXPECT_TRUE(response(nullptr)->answer("nobody listens"));
}

TEST_F(Answers, AFailingWayBackDoesNotGetOutOfTheDestructor) {
    QueueChannel failing(queue, [](const mirel::Answer&) { throw std::bad_alloc(); });
    EXPECT_NO_THROW(response(&failing).reset());
    auto tried = response(&failing);
    EXPECT_THROW(tried->answer("data"), std::bad_alloc);
    EXPECT_FALSE(tried->answered()) << "so that the caller still gets a failure";
}

TEST_F(Answers, UnreadRequestsFailWhenTheChannelCloses) {
    for (const Message& message : {request(1), Message(), timerMessage(1), request(2)})
        ASSERT_TRUE(queue->send(message));
    Message message;
    ASSERT_TRUE(channel->readMessage(message));
    channel->close();
    channel->close();
    EXPECT_THAT(answers.all(),
                ElementsAre(HasSubstr("source callback 2 failed the service stopped")))
        << "for the one request that was not read";
}

/// Runs a handler as a service thread does.
class Services : public Answers {
protected:
    Executable* create(const char* creator, const char* library = TEST_SERVICE_LIBRARY) {
        return context.createService(nullptr, library, creator, channel.get(), "Echo");
    }
    void call(const std::string& interface, Executable* service, const std::string& data) {
        auto pending = response(channel.get());
        context.findInvoker(interface, "text")
            ->handleMessage(service, data.data(), static_cast<int>(data.size()), pending.get());
        static_cast<void>(pending.release()); // the handler has taken it
    }

    mirel::ServiceContext context;
};

TEST_F(Services, AreLoadedFromALibraryWithTheirHandlers) {
    Executable* const service = create("makeEcho");
    ASSERT_TRUE(service);
    call("Echo", service, "ab\0c"s);
    EXPECT_THAT(answers.all(), ElementsAre("source callback 7 ok c\0ba"s));
    EXPECT_FALSE(context.findInvoker("Echo", "binary"));
    EXPECT_THROW(create("makeEcho"), MirelException) << "the handler is registered already";
}

TEST_F(Services, WhatIsMissingIsLogged) {
    const LogCapture log;
    EXPECT_FALSE(create("makeEcho", "libmirel-none.so"));
    EXPECT_FALSE(create("makeCoffee"));
    EXPECT_FALSE(create("makeNothing"));
    EXPECT_THAT(
        log.with("2 "),
        ElementsAre(AllOf(HasSubstr("\"libmirel-none.so\""), HasSubstr("No such file")),
                    AllOf(HasSubstr(TEST_SERVICE_LIBRARY), HasSubstr("no creator \"makeCoffee\"")),
                    AllOf(HasSubstr("makeNothing"), HasSubstr("no service"))));
}

TEST_F(Services, HandlerThatThrowsAnswersWithTheTextAndLetsItPass) {
    context.addHandler<TestService>("I", "text",
                                    [](TestService&, std::string_view data) -> std::string {
                                        throw std::runtime_error("cannot do " + std::string(data));
                                    });
    TestService service;
    EXPECT_THROW(call("I", &service, "this"), std::runtime_error);

    // Neither without a service nor with another one is the handler called.
    TestLegacyService other(nullptr);
    EXPECT_THROW(call("I", nullptr, ""), MirelException);
    EXPECT_THROW(call("I", &other, ""), MirelException);
    EXPECT_THAT(answers.all(),
                ElementsAre("source callback 7 failed cannot do this", HasSubstr("service object"),
                            HasSubstr("service object")));
}

TEST(Interceptors, SeeTheCallInOppositeOrdersBeforeAndAfter) {
    mirel::InterceptorList interceptors;
    Events seen;
    for (const char* const name : {"a", "b"})
        interceptors.add([&seen, name](InvokeInterceptorContext&) { seen.add(name); });
    InvokeInterceptorContext context(InvokeInterceptorContext::eBeforeInvocation, 5, nullptr);
    interceptors.dispatch(&context);
    context.setInterceptionPoint(InvokeInterceptorContext::eAfterInvocation);
    interceptors.dispatch(&context);
    EXPECT_THAT(seen.all(), ElementsAre("a", "b", "b", "a"));
}

} // namespace
