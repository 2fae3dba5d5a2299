#include "framework/InvokerResponse.h"
#include "framework/MirelException.h"
#include "framework/Service.h"
#include "standalone/AnswerSink.h"
#include "standalone/MessageQueue.h"
#include "standalone/QueueChannel.h"
#include "standalone/StandaloneContext.h"
#include "tests/unit/CapturedLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

/// Runs a handler as a service thread does, and returns what the caller gets.
class Services : public testing::Test {
protected:
    mirel::Answer call(Invoker& invoker, Executable* service, std::string_view data) {
        std::string text;
        auto* const response =
            new InvokerResponse(&channel, text, text, text, text, 1, text, text, 0);
        try {
            invoker.handleMessage(service, data.data(), static_cast<int>(data.size()), response);
        } catch (...) {
            delete response;
            throw;
        }
        return answers.back();
    }

    std::vector<mirel::Answer> answers;
    mirel::QueueChannel channel{std::make_shared<mirel::MessageQueue>(1),
                                [this](const mirel::Answer& answer) { answers.push_back(answer); }};
    mirel::StandaloneContext context;
};

TEST_F(Services, AreLoadedFromALibraryWithTheirHandlers) {
    Executable* const service =
        context.createService(nullptr, TEST_SERVICE_LIBRARY, "makeEcho", &channel, "Echo");
    ASSERT_TRUE(service);
    Invoker* const invoker = context.findInvoker("Echo", "text");
    ASSERT_TRUE(invoker);
    EXPECT_FALSE(context.findInvoker("Echo", "binary"));
    EXPECT_FALSE(context.findInvoker("text", "Echo"));

    using namespace std::string_view_literals;
    const mirel::Answer answer = call(*invoker, service, "ab\0c"sv);
    EXPECT_TRUE(answer.succeeded);
    EXPECT_EQ(answer.data, "c\0ba"sv);

    // A second service of the interface cannot register the same handler; that gets through.
    EXPECT_THROW(context.createService(nullptr, TEST_SERVICE_LIBRARY, "makeEcho", &channel, "Echo"),
                 MirelException);
}

TEST_F(Services, WhatIsMissingIsLogged) {
    const CapturedLog log;
    const auto create = [this](const char* library, const char* creator) {
        return context.createService(nullptr, library, creator, &channel, "Echo");
    };
    EXPECT_FALSE(create("libmirel-none.so", "makeEcho"));
    EXPECT_FALSE(create(TEST_SERVICE_LIBRARY, "makeCoffee"));
    EXPECT_FALSE(create(TEST_SERVICE_LIBRARY, "makeNothing"));
    EXPECT_THAT(log.lines(),
                ElementsAre(AllOf(HasSubstr("2 Stand"), HasSubstr("\"libmirel-none.so\""),
                                  HasSubstr("No such file")),
                            AllOf(HasSubstr("2 Stand"), HasSubstr(TEST_SERVICE_LIBRARY),
                                  HasSubstr("no creator \"makeCoffee\"")),
                            AllOf(HasSubstr("2 Stand"), HasSubstr("makeNothing"),
                                  HasSubstr("no service"))));
    EXPECT_THROW(create(TEST_SERVICE_LIBRARY, "makeTrouble"), std::runtime_error);
    EXPECT_THROW(mirel::StandaloneContext::loadCreator("libmirel-none.so", "x"), MirelException);
}

class Plain : public Executable {
public:
    void timerEvent(int) override {}
};

class Counting : public Plain {
public:
    explicit Counting(int& destroyed) : m_destroyed(destroyed) {}
    ~Counting() override { ++m_destroyed; }

private:
    int& m_destroyed;
};

TEST_F(Services, HandlerThatThrowsAnswersWithTheTextAndLetsItPass) {
    int destroyed = 0;
    Counting service(destroyed);
    context.addHandler<Counting>("I", "p", [](Counting&, std::string_view data) -> std::string {
        throw std::runtime_error("cannot do " + std::string(data));
    });
    Invoker& invoker = *context.findInvoker("I", "p");
    EXPECT_THROW(call(invoker, &service, "this"), std::runtime_error);
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_FALSE(answers[0].succeeded);
    EXPECT_EQ(answers[0].data, "cannot do this");

    // Neither without a service nor with another one is the handler called.
    Plain other;
    for (Executable* const wrong :
         {static_cast<Executable*>(nullptr), static_cast<Executable*>(&other)}) {
        EXPECT_THROW(call(invoker, wrong, ""), MirelException);
        EXPECT_THAT(answers.back().data, HasSubstr("service object"));
    }
    EXPECT_EQ(answers.size(), 3U);
}

} // namespace
