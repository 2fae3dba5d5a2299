#include "channels/Envelope.h"

#include "tests/system/Support.h"

#include <limits>
#include <random>
#include <tuple>

namespace mirel {
namespace {

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

Answer sampleAnswer(bool succeeded = true) {
    return {succeeded, std::numeric_limits<long>::max(), "source", "",
            std::string("\0 data \xff", 8)};
}

/// Why the decoder refuses the bytes; empty when it takes them.
template <typename Decoder>
std::string refusal(Decoder decode, std::string_view bytes) {
    try {
        decode(bytes);
        return "";
    } catch (const EnvelopeError& failure) {
        return failure.what();
    }
}

/// Whether neither decoder takes the bytes.
bool isRefused(std::string_view bytes) {
    return !refusal(decodeMessage, bytes).empty() && !refusal(decodeAnswer, bytes).empty();
}

auto fieldsOf(CommsChannelDataContainerMessage msg) {
    return std::tuple(msg.msgType(), msg.requestId(), msg.sourceChannel(), msg.channel(),
                      msg.protocol(), msg.interface(), msg.priority(), msg.proxyCallMode(),
                      msg.remoteContext(), msg.getData());
}

TEST(Envelope, KeepsEveryFieldOfAMessage) {
    auto msg = sampleMessage();
    EXPECT_EQ(fieldsOf(decodeMessage(encode(msg))), fieldsOf(msg));
}

TEST(Envelope, KeepsEveryFieldOfAnAnswer) {
    for (const bool succeeded : {true, false}) {
        const Answer before = sampleAnswer(succeeded);
        const Answer after = decodeAnswer(encode(before));
        EXPECT_EQ(std::tie(after.succeeded, after.requestId, after.sourceChannel, after.data),
                  std::tie(before.succeeded, before.requestId, before.sourceChannel, before.data));
    }
}

TEST(Envelope, TellsOfRefusals) {
    auto msg = sampleMessage();
    const SentMessage sent = decodeSent(encode(msg, 7));
    EXPECT_EQ(sent.refusalsKnown, 7U);
    EXPECT_EQ(decodeSent(encode(msg)).refusalsKnown, std::nullopt);
    Answer refusal = sampleAnswer();
    refusal.refusal = 8;
    EXPECT_EQ(decodeAnswer(encode(refusal)).refusal, 8U);
    EXPECT_EQ(decodeAnswer(encode(sampleAnswer())).refusal, 0U);
}

TEST(Envelope, IsRefusedWhenCutShortOrFollowedBySomething) {
    auto msg = sampleMessage();
    for (const std::string& good : {encode(msg), encode(msg, 7), encode(sampleAnswer())}) {
        for (std::size_t length = 0; length < good.size(); ++length)
            EXPECT_TRUE(isRefused(good.substr(0, length))) << length;
        EXPECT_TRUE(isRefused(good + '\0'));
    }
}

TEST(Envelope, SurvivesGarbage) {
    std::mt19937 random(20);
    auto msg = sampleMessage();
    for (const std::string& good : {encode(msg), encode(sampleAnswer())}) {
        for (int round = 0; round < 50000; ++round) {
            std::string bytes = good; // nearly right, which gets further than noise
            for (auto changes = 1 + random() % bytes.size(); changes > 0; changes /= 2)
                bytes[random() % bytes.size()] = static_cast<char>(random());
            ASSERT_NO_THROW(isRefused(bytes));
        }
    }
}

/// The smallest message, with one of its fields replaced.
std::string messageWith(std::size_t field, const std::string& bytes) {
    using namespace std::string_literals;
    auto message = "\x9c\x01\x00\x00\x00\xa0\xa0\xa0\xa0\x01\xa0\xa0\xc4\x00"s;
    return message.replace(1 + field, field == 11 ? 2 : 1, bytes);
}

TEST(Envelope, IsRefusedWithAReason) {
    const std::pair<std::string, const char*> bad[] = {
        {messageWith(0, "\x03"), "version 3"},
        {messageWith(0, "\x02"), "12 fields instead of 13"},
        {encode(sampleAnswer()), "not a message"},
        {"\x01", "not an array"},
        {{"\x92\x01\x00", 3}, "2 fields"},
        {"\xdd\xff\xff\xff\xff\x01", "not a complete envelope"},                  // so many fields
        {messageWith(11, "\xc6\xff\xff\xff\xff\x01"), "not a complete envelope"}, // so much data
        {std::string(100000, '\x91') + '\x01', "not a complete envelope"},        // deeply nested
        {messageWith(4, "\x91\x01"), "not a complete envelope"},                  // nested once
        {messageWith(2, "\xd3\x01\x01\x01\x01\x01\x01\x01\x01"), "message type"},
        {messageWith(3, "\xcf\xff\xff\xff\xff\xff\xff\xff\xff"), "request id"},
        {messageWith(4, "\x01"), "source channel"},
        {messageWith(11, "\xa1x"), "data"},
    };
    EXPECT_EQ(refusal(decodeMessage, messageWith(8, "\x02")), "");
    // A request id with more than 32 bits is taken whole, where that fits, or not at all.
    EXPECT_EQ(refusal(decodeMessage, messageWith(3, {"\xd3\0\0\0\x01\0\0\0\x05", 9})),
              sizeof(long) == 8 ? "" : "request id is not a value of its type and range");
    for (const auto& [bytes, why] : bad)
        EXPECT_TRUE(contains(refusal(decodeMessage, bytes), why));
}

} // namespace
} // namespace mirel
