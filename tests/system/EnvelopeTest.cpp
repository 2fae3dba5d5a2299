#include "standalone/Envelope.h"

#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <msgpack.hpp>
#include <random>

namespace mirel {
namespace {

using Packer = msgpack::packer<msgpack::sbuffer>;

CommsChannelDataContainerMessage sampleMessage() {
    CommsChannelDataContainerMessage msg;
    msg.setMsgType(3);
    msg.setRequestId(std::numeric_limits<long>::min());
    msg.sourceChannel() = "source";
    msg.channel() = "ipc:///service";
    msg.protocol() = "protocol";
    msg.interface() = "interface";
    msg.setPriority(ePriorityHigh);
    msg.proxyCallMode() = "mode";
    msg.remoteContext() = "context";
    msg.setData(std::string("\0 data \xff", 8));
    return msg;
}

Answer sampleAnswer() {
    return {true, std::numeric_limits<long>::max(), "source", "", std::string("\0 data \xff", 8)};
}

std::string packed(const std::function<void(Packer&)>& fill) {
    msgpack::sbuffer bytes;
    Packer packer(bytes);
    fill(packer);
    return {bytes.data(), bytes.size()};
}

bool isMessage(std::string_view bytes) {
    try {
        decodeMessage(bytes);
        return true;
    } catch (const EnvelopeError&) {
        return false;
    }
}

bool isAnswer(std::string_view bytes) {
    try {
        decodeAnswer(bytes);
        return true;
    } catch (const EnvelopeError&) {
        return false;
    }
}

TEST(Envelope, keepsEveryFieldOfAMessage) {
    auto before = sampleMessage();
    auto after = decodeMessage(encode(before));
    EXPECT_EQ(after.msgType(), before.msgType());
    EXPECT_EQ(after.requestId(), before.requestId());
    EXPECT_EQ(after.sourceChannel(), before.sourceChannel());
    EXPECT_EQ(after.channel(), before.channel());
    EXPECT_EQ(after.protocol(), before.protocol());
    EXPECT_EQ(after.interface(), before.interface());
    EXPECT_EQ(after.priority(), before.priority());
    EXPECT_EQ(after.proxyCallMode(), before.proxyCallMode());
    EXPECT_EQ(after.remoteContext(), before.remoteContext());
    EXPECT_EQ(after.getData(), before.getData());
}

TEST(Envelope, carriesAPriorityThatNoExecutorTakes) {
    auto msg = sampleMessage();
    msg.setPriority(static_cast<MirelThreadPriority>(-7));
    EXPECT_EQ(decodeMessage(encode(msg)).priority(), -7);
}

TEST(Envelope, keepsEveryFieldOfAnAnswer) {
    for (const bool succeeded : {true, false}) {
        Answer before = sampleAnswer();
        before.succeeded = succeeded;
        const Answer after = decodeAnswer(encode(before));
        EXPECT_EQ(after.succeeded, before.succeeded);
        EXPECT_EQ(after.requestId, before.requestId);
        EXPECT_EQ(after.sourceChannel, before.sourceChannel);
        EXPECT_EQ(after.data, before.data);
    }
}

TEST(Envelope, isRefusedWhenCutShortOrFollowedBySomething) {
    auto msg = sampleMessage();
    const std::string message = encode(msg);
    for (std::size_t length = 0; length < message.size(); ++length)
        EXPECT_FALSE(isMessage(message.substr(0, length))) << length;
    EXPECT_FALSE(isMessage(message + '\0'));

    const std::string answer = encode(sampleAnswer());
    for (std::size_t length = 0; length < answer.size(); ++length)
        EXPECT_FALSE(isAnswer(answer.substr(0, length))) << length;
    EXPECT_FALSE(isAnswer(answer + '\0'));
}

TEST(Envelope, survivesGarbage) {
    std::mt19937 random(20);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < 50000; ++round) {
        std::string bytes(static_cast<std::size_t>(byte(random)), '\0');
        for (char& c : bytes)
            c = static_cast<char>(byte(random));
        ASSERT_FALSE(isMessage(bytes));
        ASSERT_FALSE(isAnswer(bytes));
    }
    // Close to right, which gets further: whatever is let through must be a whole envelope again.
    auto msg = sampleMessage();
    const std::string good = encode(msg);
    std::uniform_int_distribution<std::size_t> place(0, good.size() - 1);
    for (int round = 0; round < 50000; ++round) {
        std::string bytes = good;
        bytes[place(random)] = static_cast<char>(byte(random));
        bytes[place(random)] = static_cast<char>(byte(random));
        if (isMessage(bytes)) {
            auto decoded = decodeMessage(bytes);
            ASSERT_TRUE(isMessage(encode(decoded)));
        }
    }
}

struct BadEnvelope {
    const char* name;
    std::string bytes;
    const char* says; ///< part of the error

    friend void PrintTo(const BadEnvelope& value, std::ostream* out) { *out << value.name; }
};

class BadMessage : public testing::TestWithParam<BadEnvelope> {};

TEST_P(BadMessage, isRefusedWithAReason) {
    try {
        decodeMessage(GetParam().bytes);
        FAIL() << "accepted";
    } catch (const EnvelopeError& failure) {
        EXPECT_NE(std::string(failure.what()).find(GetParam().says), std::string::npos)
            << failure.what();
    }
}

/// A message's fields as they should be, except for one.
std::string messageWith(int changed, const std::function<void(Packer&)>& field) {
    return packed([&](Packer& packer) {
        packer.pack_array(12);
        for (int index = 0; index < 12; ++index) {
            if (index == changed)
                field(packer);
            else if (index == 11)
                packer.pack_bin(0);
            else if (index == 0 || index == 8)
                packer.pack(1);
            else if (index < 4)
                packer.pack(0);
            else
                packer.pack("text");
        }
    });
}

std::string nested(std::size_t depth) { return std::string(depth, '\x91') + '\x01'; }

INSTANTIATE_TEST_SUITE_P(
    Envelope, BadMessage,
    testing::Values(
        BadEnvelope{"empty", "", "not a complete envelope"},
        BadEnvelope{"otherVersion", messageWith(0, [](Packer& p) { p.pack(2); }), "version 2"},
        BadEnvelope{"answer", encode(sampleAnswer()), "not a message"},
        BadEnvelope{"noArray", packed([](Packer& p) { p.pack(1); }), "not an array"},
        BadEnvelope{"map", packed([](Packer& p) { p.pack_map(0); }), "not an array"},
        BadEnvelope{"tooFewFields", packed([](Packer& p) { p.pack_array(2).pack(1).pack(0); }),
                    "2 fields"},
        BadEnvelope{"announcesManyFields", "\xdd\xff\xff\xff\xff\x01", "not a complete envelope"},
        BadEnvelope{"announcesMuchData", "\x9c\x01\x00\xc6\xff\xff\xff\xff\x01",
                    "not a complete envelope"},
        BadEnvelope{"deeplyNested", nested(100000), "not a complete envelope"},
        BadEnvelope{"nestedField", messageWith(4, [](Packer& p) { p.pack_array(1).pack(1); }),
                    "not a complete envelope"},
        BadEnvelope{
            "requestIdTooLarge",
            messageWith(3, [](Packer& p) { p.pack(std::numeric_limits<std::uint64_t>::max()); }),
            "request id"},
        BadEnvelope{"requestIdOfAnotherType", messageWith(3, [](Packer& p) { p.pack(1.5); }),
                    "request id"},
        BadEnvelope{"typeTooLarge", messageWith(2, [](Packer& p) { p.pack(1L << 40); }),
                    "message type"},
        BadEnvelope{"priorityIsText", messageWith(8, [](Packer& p) { p.pack("1"); }), "priority"},
        BadEnvelope{"sourceIsANumber", messageWith(4, [](Packer& p) { p.pack(1); }),
                    "source channel"},
        BadEnvelope{"sourceIsNil", messageWith(4, [](Packer& p) { p.pack_nil(); }),
                    "source channel"},
        BadEnvelope{"dataAreText", messageWith(11, [](Packer& p) { p.pack("data"); }), "data"}),
    [](const auto& param) { return param.param.name; });

TEST(Envelope, theTableAboveVariesAGoodMessage) { EXPECT_TRUE(isMessage(messageWith(-1, {}))); }

} // namespace
} // namespace mirel
