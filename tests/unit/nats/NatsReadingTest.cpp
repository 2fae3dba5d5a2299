#include "channels/nats/read/NatsAttempts.h"
#include "channels/nats/read/NatsHandedOut.h"
#include "channels/nats/wire/NatsAddress.h"
#include "channels/nats/wire/NatsDelivery.h"
#include "framework/MirelException.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace mirel {
namespace {

TEST(NatsReading, UnderstandsAddresses) {
    const NatsAddress address("tls://one,two:5000,[::1]:7,[::1]/some-service_2");
    const std::vector<std::string> servers{"tls://one:4222", "tls://two:5000", "tls://[::1]:7",
                                           "tls://[::1]:4222"};
    EXPECT_EQ(address.servers(), servers);
    EXPECT_TRUE(address.encrypted());
    EXPECT_EQ(address.stream(), "some-service_2");
    for (const char* const bad :
         {"nats://host", "nats://host/", "nats:///service", "nats://,host/service",
          "nats://:4222/service", "nats://me@host/service", "nats://host/one/two",
          "nats://host/a.b", "nats://host/*", "http://host/service", "host/service"})
        EXPECT_THROW(NatsAddress{bad}, MirelException) << bad;
}

TEST(NatsReading, UnderstandsSubjectsOfRequests) {
    const NatsAddress address("nats://host/service");
    const std::string caller = NatsAddress::caller("an.na@*", "nightly");
    EXPECT_EQ(caller, "an_na__.nightly") << "one token each, whatever the user's name";
    const auto request = address.parseRequest(address.requests(12, caller, "run", "line"));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->partition, 12U);
    EXPECT_EQ(request->caller, caller);
    for (const char* const other :
         {"service.requests.12", "service.requests.12.anna",
          "service.requests.x.anna.nightly.run.line", "service.requests.-1.anna.nightly.run.line",
          "service.answers.1.anna.nightly", "other.requests.1.anna.nightly.run.line", ""})
        EXPECT_FALSE(address.parseRequest(other)) << other;
}

TEST(NatsReading, UnderstandsConfirmations) {
    const auto caller = NatsAddress::callerOfConfirmations("taken.anna.nightly.0");
    EXPECT_EQ(caller.value_or(""), "anna.nightly");
    EXPECT_FALSE(NatsAddress::callerOfConfirmations("0.17"));
    EXPECT_EQ(readConfirmations("17 18 "), (std::vector<std::uint64_t>{17, 18}));
    for (const char* const other : {"", "{\"stream\":\"service\", \"seq\":17}", "17 x ", "17  18 "})
        EXPECT_TRUE(readConfirmations(other).empty()) << other;
}

TEST(NatsReading, UnderstandsDeliveries) {
    for (const char* const subject : {"$JS.ACK.service.p0-1.2.30.40.1700000000000000000.5",
                                      "$JS.ACK.domain.account.service.p0-1.2.30.40."
                                      "1700000000000000000.5.token"}) {
        const auto delivery = NatsDelivery::parse(subject);
        ASSERT_TRUE(delivery) << subject;
        EXPECT_EQ(delivery->consumer, "p0-1");
        EXPECT_EQ(delivery->times, 2U);
        EXPECT_EQ(delivery->streamSequence, 30U);
        EXPECT_EQ(delivery->consumerSequence, 40U);
        EXPECT_EQ(delivery->stored, 1700000000000000000U);
    }
    for (const char* const subject :
         {"", "$JS.ACK", "$JS.ACK.service.p0-1.x.30.40.17.5", "$JS.ACK.service.p0-1.2.30.40.17",
          "_INBOX.answers.17", "$JS.ACK.service.p0-1.2.30.18446744073709551616.17.5"})
        EXPECT_FALSE(NatsDelivery::parse(subject)) << subject;

    const auto way = NatsReturn::parse(NatsReturn{"anna.nightly", 3, 4, 5}.text());
    ASSERT_TRUE(way);
    EXPECT_EQ(way->caller, "anna.nightly");
    EXPECT_EQ(way->partition, 3U);
    EXPECT_EQ(way->tenure, 4U);
    EXPECT_EQ(way->streamSequence, 5U);
    EXPECT_FALSE(NatsReturn::parse("anna.nightly 3 4"));
    EXPECT_FALSE(NatsReturn::parse("anna.nightly 4294967296 4 5"));
}

TEST(NatsReading, KnowsWhatWasHandedOut) {
    NatsHandedOut handedOut;
    handedOut.add({7, 1000, "anna", "a1"});
    handedOut.add({9, 900, "bert", "b1"}); // by a leader whose clock is late
    EXPECT_TRUE(handedOut.contains(7, 1000));
    EXPECT_TRUE(handedOut.contains(9, 900));
    EXPECT_FALSE(handedOut.contains(10, 1100));
    EXPECT_FALSE(handedOut.contains(8, 1100)) << "the server counts from a lower number again";

    EXPECT_TRUE(handedOut.isCopy({10, 1100, "anna", "a1"}));
    EXPECT_FALSE(handedOut.isCopy({7, 1000, "anna", "a1"})) << "the same, delivered once more";
    EXPECT_FALSE(handedOut.isCopy({10, 1100, "bert", "a1"}));
    EXPECT_FALSE(handedOut.isCopy({10, 1100, "anna", "a2"}));
    handedOut.add({10, 1100, "anna", ""});
    EXPECT_FALSE(handedOut.isCopy({11, 1200, "anna", ""})) << "nothing tells these apart";

    handedOut.takeBack(9);
    EXPECT_TRUE(handedOut.contains(7, 1000));
    EXPECT_FALSE(handedOut.contains(9, 900));
    EXPECT_FALSE(handedOut.isCopy({12, 1300, "bert", "b1"})) << "the first one has not run";
    handedOut.clear();
    EXPECT_FALSE(handedOut.contains(7, 1000));
}

TEST(NatsReading, CountsTheAttemptsOfEveryHost) {
    std::map<std::string, std::string> kept;
    bool writes = true;
    const auto newHost = [&] {
        return NatsAttempts({[&](const std::string& key) { return kept[key]; },
                             [&](const std::string& key, const std::string& text) {
                                 if (!writes)
                                     throw std::runtime_error("no answer");
                                 kept[key] = text;
                             }});
    };
    // The first attempt is the one that brought the message in doubt, and was counted nowhere.
    NatsAttempts second = newHost(), third = newHost(), fourth = newHost();
    EXPECT_TRUE(second.begin(0, "17.1", 3));
    EXPECT_TRUE(second.begin(0, "17.1", 3)) << "the same attempt";
    writes = false;
    EXPECT_THROW(third.begin(0, "17.1", 3), std::runtime_error);
    writes = true;
    EXPECT_TRUE(third.begin(0, "17.1", 3));
    EXPECT_TRUE(third.begin(1, "17.1", 3)) << "another partition's";
    EXPECT_FALSE(fourth.begin(0, "17.1", 3));
    EXPECT_TRUE(fourth.begin(0, "18.1", 3));
}

} // namespace
} // namespace mirel
