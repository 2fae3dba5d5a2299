// Bytes from anywhere as a message and as an answer.

#include "channels/Envelope.h"
#include "channels/ReceivedMessage.h"
#include "channels/RefusalCounter.h"
#include "runtime/values/MessageRules.h"
#include "tests/fuzz/Require.h"

#include <algorithm>
#include <cstdint>
#include <msgpack.hpp>
#include <span>

namespace mirel {
namespace {

constexpr std::size_t kLimit = 1000;

/// As msgpack's own, which compares texts of no bytes by a null pointer.
bool areEqual(const msgpack::object& one, const msgpack::object& other) {
    if (one.type != other.type)
        return false;
    const auto textOf = [](const msgpack::object& object) {
        return object.type == msgpack::type::BIN
                   ? std::string_view(object.via.bin.ptr, object.via.bin.size)
                   : std::string_view(object.via.str.ptr, object.via.str.size);
    };
    if (one.type == msgpack::type::STR || one.type == msgpack::type::BIN)
        return textOf(one) == textOf(other);
    if (one.type != msgpack::type::ARRAY)
        return one == other;
    const auto all = [](const msgpack::object_array& array) {
        return std::span(array.ptr, array.size);
    };
    return std::ranges::equal(all(one.via.array), all(other.via.array), areEqual);
}

std::string encodeAgain(SentMessage sent) { return encode(sent.msg, sent.refusalsKnown); }

std::string encodeAgain(const Answer& answer) { return encode(answer); }

/// What is decoded is what the bytes say, and no larger when it is sent on.
template <typename Decode>
void tryDecoding(std::string_view bytes, Decode decode) {
    std::string again;
    try {
        again = encodeAgain(decode(bytes));
    } catch (const EnvelopeError&) {
        return;
    }
    require(again.size() <= bytes.size(), "what is sent on is no larger");
    const auto expected = msgpack::unpack(bytes.data(), bytes.size());
    const auto actual = msgpack::unpack(again.data(), again.size());
    require(areEqual(expected.get(), actual.get()), "every field is kept");
}

void tryReceiving(std::string_view bytes) {
    static RefusalCounter& refused = *new RefusalCounter("Fuzz", "envelope");
    const unsigned long before = refused.count();
    int answers = 0;
    auto sent = decodeReceived(bytes, "caller", kLimit, refused, [&](const Answer& failure) {
        ++answers;
        require(!failure.succeeded && failure.callbackChannel == "caller", "its caller is told");
    });
    require(refused.count() - before == (sent ? 0 : 1), "either taken or counted");
    require(answers == 0 || !sent, "what is taken is not answered");
    require(!sent || (bytes.size() <= kLimit && whyRefused(sent->msg).empty()), "the rules hold");
}

} // namespace
} // namespace mirel

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    mirel::tryDecoding(bytes, mirel::decodeSent);
    mirel::tryDecoding(bytes, mirel::decodeAnswer);
    mirel::tryReceiving(bytes);
    return 0;
}
