#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/InvokerResponse.h"
#include "framework/MirelException.h"
#include "framework/Serializer.h"
#include "standalone/AnswerSink.h"
#include "standalone/MessageQueue.h"
#include "standalone/MessageRules.h"
#include "standalone/QueueChannel.h"

#include <chrono>
#include <climits>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using mirel::Answer;
using mirel::MessageQueue;
using mirel::QueueChannel;
using testing::HasSubstr;

CommsChannelDataContainerMessage request(long id) {
    CommsChannelDataContainerMessage msg;
    msg.protocol() = "text";
    msg.interface() = "Clock";
    msg.sourceChannel() = "source";
    msg.callbackChannel() = "callback";
    msg.setRequestId(id);
    return msg;
}

CommsChannelDataContainerMessage timerEvent(std::string data) {
    CommsChannelDataContainerMessage msg;
    msg.setMsgType(mirel::kTimerEvent);
    msg.setData(std::move(data));
    return msg;
}

TEST(Serializer, IntegersComeBack) {
    for (const int value :
         {0, 1, -1, 127, 128, -32, -33, 255, 256, -129, 65536, INT_MAX, INT_MIN}) {
        std::string data = Serializer::serialize(value);
        int result = ~value;
        Serializer::deserialize(data, result);
        EXPECT_EQ(result, value);
    }
}

TEST(Serializer, AcceptsEveryEncodingOfAnIntegerAndNothingElse) {
    struct Case {
        const char* what;
        std::string data;
        const char* error; ///< null: 5
    };
    const Case cases[] = {
        {"shortest", "\x05", nullptr},
        {"longest", std::string("\xcf\0\0\0\0\0\0\0\x05", 9), nullptr},
        {"signed", std::string("\xd3\0\0\0\0\0\0\0\x05", 9), nullptr},
        {"empty", "", "insufficient"},
        {"truncated", std::string("\xd2\0\0", 3), "insufficient"},
        {"followed by a byte", std::string("\x05\0", 2), "1 more"},
        {"above int", std::string("\xce\x80\0\0\0", 5), "range"},
        {"below int", "\xd3\xff\xff\xff\xff\x7f\xff\xff\xff", "range"},
        {"above everything", "\xcf\xff\xff\xff\xff\xff\xff\xff\xff", "range"},
        {"nil", "\xc0", "type"},
        {"true", "\xc3", "type"},
        {"double", std::string("\xcb\x40\x14\0\0\0\0\0\0", 9), "type"},
        {"text",
         "\xa1"
         "5",
         "not one"},
        {"array", "\x91\x05", "not one"},
        {"announced 96 GiB array", "\xdd\xff\xff\xff\xff", "not one"},
        {"unused code", "\xc1", "not one"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::string data = c.data;
        int value = -7;
        if (!c.error) {
            EXPECT_NO_THROW(Serializer::deserialize(data, value));
            EXPECT_EQ(value, 5);
            continue;
        }
        try {
            Serializer::deserialize(data, value);
            ADD_FAILURE() << "read as " << value;
        } catch (const MirelException& failure) {
            EXPECT_THAT(failure.message(), HasSubstr(c.error));
            EXPECT_EQ(value, -7);
        }
    }
}

TEST(MessageQueue, RefusesWhatWouldEndTheExecutor) {
    MessageQueue queue(8);
    for (const int priority : {-1, 3, INT_MAX, INT_MIN}) {
        auto msg = request(1);
        msg.setPriority(MirelThreadPriority(priority));
        EXPECT_THAT(mirel::whyRefused(msg), HasSubstr("0, 1 or 2"));
        EXPECT_THROW(queue.send(msg), MirelException);
    }
    auto broken = timerEvent("soon");
    EXPECT_THAT(mirel::whyRefused(broken), HasSubstr("timer identifier"));
    EXPECT_THROW(queue.trySend(broken, 0ms), MirelException);

    auto good = timerEvent(Serializer::serialize(3));
    EXPECT_EQ(mirel::whyRefused(good), "");
    EXPECT_TRUE(queue.send(good));
    EXPECT_EQ(queue.takeRest().size(), 1U);
}

TEST(MessageQueue, IsBoundedAndKeepsTheOrder) {
    MessageQueue queue(2);
    EXPECT_TRUE(queue.send(request(1)));
    EXPECT_TRUE(queue.send(request(2)));
    auto third = request(3);
    EXPECT_FALSE(queue.trySend(third, 0ms));
    EXPECT_FALSE(queue.trySend(third, 5ms));
    EXPECT_EQ(third.interface(), "Clock") << "a message that is not taken stays as it is";

    // A sender that waits goes on when there is room.
    auto sending = std::async(std::launch::async, [&] { return queue.send(third); });
    for (long id = 1; id <= 3; ++id) {
        CommsChannelDataContainerMessage msg;
        ASSERT_TRUE(queue.read(msg));
        EXPECT_EQ(msg.requestId(), id);
    }
    EXPECT_TRUE(sending.get());
}

TEST(MessageQueue, CloseEndsBothSidesAndKeepsTheRest) {
    MessageQueue full(1);
    ASSERT_TRUE(full.send(request(1)));
    MessageQueue empty(1);
    auto sending = std::async(std::launch::async, [&] { return full.send(request(2)); });
    auto reading = std::async(std::launch::async, [&] {
        CommsChannelDataContainerMessage msg;
        return empty.read(msg);
    });
    EXPECT_EQ(reading.wait_for(5ms), std::future_status::timeout);
    full.close();
    empty.close();
    EXPECT_FALSE(sending.get());
    EXPECT_FALSE(reading.get());

    CommsChannelDataContainerMessage msg;
    EXPECT_FALSE(full.read(msg)) << "although it holds a message";
    EXPECT_FALSE(full.trySend(msg, 1h)) << "at once";
    EXPECT_TRUE(full.closed());
    ASSERT_EQ(full.takeRest().size(), 1U);
    EXPECT_TRUE(full.takeRest().empty());
}

class Answers : public testing::Test {
protected:
    std::unique_ptr<InvokerResponse> response(CommsChannelIfc* from, long id = 7) {
        std::string source = "source";
        std::string callback = "callback";
        std::string other;
        return std::make_unique<InvokerResponse>(from, source, callback, other, other, id, other,
                                                 other, 0);
    }

    std::vector<Answer> answers;
    const std::shared_ptr<MessageQueue> queue = std::make_shared<MessageQueue>(8);
    std::unique_ptr<QueueChannel> channel = std::make_unique<QueueChannel>(
        queue, [this](const Answer& answer) { answers.push_back(answer); });
};

TEST_F(Answers, TheFirstDecides) {
    auto first = response(channel.get());
    EXPECT_FALSE(first->answered());
    EXPECT_TRUE(first->answer("data"));
    EXPECT_TRUE(first->answered());
    EXPECT_FALSE(first->answer("other data"));
    EXPECT_FALSE(first->answerError("failure"));
    first.reset();
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_TRUE(answers[0].succeeded);
    EXPECT_EQ(answers[0].data, "data");
    EXPECT_EQ(answers[0].requestId, 7);
    EXPECT_EQ(answers[0].sourceChannel, "source");
    EXPECT_EQ(answers[0].callbackChannel, "callback");
}

TEST_F(Answers, DestroyedUnansweredIsAFailure) {
    response(channel.get()).reset();
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_FALSE(answers[0].succeeded);
    EXPECT_THAT(answers[0].data, HasSubstr("not answered"));
}

TEST_F(Answers, OutliveTheChannelAndNeedNone) {
    auto late = response(channel.get());
    channel.reset();
    EXPECT_TRUE(late->answer("late"));
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers[0].data, "late");

    EXPECT_TRUE(response(nullptr)->answer("nobody listens"));
    const QueueChannel withoutFunction(queue, nullptr);
    EXPECT_TRUE(response(const_cast<QueueChannel*>(&withoutFunction))->answer("nor here"));
}

TEST_F(Answers, AFailingWayBackDoesNotGetOutOfTheDestructor) {
    QueueChannel failing(queue, [](const Answer&) { throw std::bad_alloc(); });
    EXPECT_NO_THROW(response(&failing).reset());
    auto tried = response(&failing);
    EXPECT_THROW(tried->answer("data"), std::bad_alloc);
    EXPECT_TRUE(tried->answered()) << "it may have been delivered, and is not tried again";
}

TEST_F(Answers, UnreadRequestsFailWhenTheChannelCloses) {
    CommsChannelDataContainerMessage legacy;
    ASSERT_TRUE(queue->send(request(1)));
    ASSERT_TRUE(queue->send(legacy));
    ASSERT_TRUE(queue->send(timerEvent(Serializer::serialize(1))));
    ASSERT_TRUE(queue->send(request(2)));
    CommsChannelDataContainerMessage msg;
    ASSERT_TRUE(channel->readMessage(msg));
    channel->close();
    channel->close();
    EXPECT_FALSE(channel->readMessage(msg));
    ASSERT_EQ(answers.size(), 1U) << "for the one request that was not read";
    EXPECT_EQ(answers[0].requestId, 2);
    EXPECT_FALSE(answers[0].succeeded);
    EXPECT_EQ(answers[0].callbackChannel, "callback");
    EXPECT_THAT(answers[0].data, HasSubstr("stopped before"));
}

} // namespace
