#include "channels/Shares.h"
#include "channels/queue/MessageLine.h"
#include "tests/unit/Support.h"

#include <string>

namespace mirel {
namespace {

constexpr std::size_t kPlenty = 1000000;

ShareLimits limits() { return {{100, kPlenty}, {20, 2000}, {10, 1000}, 0}; }

/// How many of `count` requests are taken on, one after the other.
int takenOn(Shares& shares, int count, const std::string& caller, const std::string& source,
            std::size_t bytes = 1) {
    int taken = 0;
    while (taken < count && !shares.takeOn(caller, source, bytes, std::nullopt))
        ++taken;
    return taken;
}

std::string whyNot(Shares& shares, const std::string& caller, const std::string& source,
                   std::size_t bytes = 1) {
    const auto refusal = shares.takeOn(caller, source, bytes, std::nullopt);
    return refusal ? refusal->why : "taken on";
}

bool names(const std::string& why, const std::string& part) {
    return why.find(part) != std::string::npos;
}

TEST(Shares, ASourceAndACallerHaveTheirs) {
    Shares shares(limits());
    EXPECT_EQ(takenOn(shares, 20, "c", "s"), 10);
    EXPECT_TRUE(names(whyNot(shares, "c", "s"), "--source-requests"));
    EXPECT_EQ(takenOn(shares, 20, "c", "t"), 10);
    EXPECT_TRUE(names(whyNot(shares, "c", "u"), "--caller-requests"));
    EXPECT_EQ(takenOn(shares, 20, "d", "s"), 10); // another one's source of that name
    shares.release("c", "t", 1);
    EXPECT_EQ(takenOn(shares, 20, "c", "u"), 1);
}

TEST(Shares, BytesCountWhateverTheNumberButForTheOnlyOne) {
    Shares shares(limits());
    EXPECT_EQ(takenOn(shares, 5, "c", "s", 400), 2);
    EXPECT_TRUE(names(whyNot(shares, "c", "s", 400), "--source-bytes"));
    EXPECT_EQ(takenOn(shares, 5, "c", "t", 1100), 1);
    EXPECT_TRUE(names(whyNot(shares, "c", "u", 101), "--caller-bytes"));
    shares.release("c", "s", 400);
    shares.release("c", "s", 400);
    EXPECT_EQ(takenOn(shares, 1, "c", "u", 900), 1);
    Shares little({{100, 3000}, {20, 2000}, {10, 1000}, 0});
    EXPECT_EQ(takenOn(little, 1, "c", "s", 5000), 1); // nobody else is in its way
    EXPECT_TRUE(names(whyNot(little, "d", "s", 1), "--max-unfinished-bytes"));
}

TEST(Shares, GreedyCallersLeaveAPartToOthers) {
    ShareLimits large = limits();
    large.caller = large.source = {kPlenty, kPlenty};
    Shares shares(large);
    for (const char* const greedy : {"a", "b", "c"})
        takenOn(shares, 100, greedy, "s");
    // Half, half of the rest, and so on; who came first gets its part back when it wants more.
    EXPECT_TRUE(names(whyNot(shares, "a", "s"), "--max-unfinished"));
    EXPECT_GE(takenOn(shares, 5, "late", "s"), 5);
}

TEST(Shares, SourcesNeedAWorkerEachOfWhichSomeAreLeft) {
    ShareLimits few = limits();
    few.workers = 8;
    Shares shares(few);
    int sources = 0;
    while (takenOn(shares, 1, "c", std::to_string(sources)) == 1)
        ++sources;
    EXPECT_EQ(sources, 6);                      // three for each one that is left
    EXPECT_EQ(takenOn(shares, 1, "c", "0"), 1); // has its worker
    EXPECT_EQ(takenOn(shares, 1, "d", "0"), 1);
    shares.release("c", "0", 1);
    EXPECT_TRUE(names(whyNot(shares, "c", "more"), "--max-workers"));
}

TEST(Shares, WhatWasSentBehindARefusedRequestIsRefused) {
    Shares shares(limits());
    EXPECT_EQ(takenOn(shares, 10, "c", "s"), 10);
    EXPECT_EQ(shares.takeOn("c", "s", 1, 0)->number, 1U);
    for (int i = 0; i < 10; ++i)
        shares.release("c", "s", 1);
    // There is room now, but this one was sent before the first refusal was known.
    EXPECT_EQ(shares.takeOn("c", "s", 1, 0)->number, 2U);
    EXPECT_EQ(shares.takeOn("c", "s", 1, 1)->number, 3U);
    EXPECT_FALSE(shares.takeOn("c", "other", 1, 0)); // not behind it
    EXPECT_FALSE(shares.takeOn("c", "s", 1, 3));     // the first one again
    EXPECT_EQ(whyNot(shares, "c", "s"), "taken on"); // from who does not say what it knows
}

TEST(Shares, RefusalsAreKnownUntilACrowdPushesThemOut) {
    ShareLimits one = limits();
    one.source.requests = 1;
    Shares shares(one);
    ASSERT_FALSE(shares.takeOn("c", "s", 1, 0));
    ASSERT_TRUE(shares.takeOn("c", "s", 1, 0));
    shares.release("c", "s", 1);
    // More sources than are remembered: forgotten ones count as refused.
    for (std::uint64_t known = 1; known <= 2100; ++known) {
        const std::string source = "s" + std::to_string(known);
        ASSERT_FALSE(shares.takeOn("c", source, 1, known));
        ASSERT_TRUE(shares.takeOn("c", source, 1, known));
        shares.release("c", source, 1);
    }
    EXPECT_TRUE(shares.takeOn("c", "s", 1, 0));
    for (int i = 0; i < 100000; ++i) {
        const std::string stranger = "stranger " + std::to_string(i);
        ASSERT_FALSE(shares.takeOn(stranger, "s", 1, 0));
        ASSERT_TRUE(shares.takeOn(stranger, "s", 1, 0));
        shares.release(stranger, "s", 1);
    }
    EXPECT_LT(shares.callers(), 5000U);
}

std::string order(MessageLine& line) {
    std::string result;
    for (CommsChannelDataContainerMessage& msg : line.takeAll())
        result += msg.callbackChannel() + ' ';
    return result;
}

TEST(MessageLine, SendersTakeTurns) {
    MessageLine line([](const std::string& name) { return std::string_view(name).substr(0, 1); });
    const auto add = [&](const std::string& names) {
        for (std::size_t at = 0; at < names.size(); at += 3) {
            CommsChannelDataContainerMessage msg;
            msg.callbackChannel() = names.substr(at, 2);
            line.push(std::move(msg));
        }
    };
    add("a1 a2 a3 a4 a5 b1 c1 c2 ");
    EXPECT_EQ(line.pop().callbackChannel(), "a1");
    EXPECT_EQ(line.pop().callbackChannel(), "b1");
    add("b2 d1 "); // who has waited for nothing yet comes next, but not before those of this turn
    EXPECT_EQ(order(line), "c1 a2 c2 b2 d1 a3 a4 a5 ");
    add("a6 b3 ");
    EXPECT_EQ(order(line), "a6 b3 ");
}

} // namespace
} // namespace mirel
