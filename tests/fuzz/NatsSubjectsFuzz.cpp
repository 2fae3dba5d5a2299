// What NATS says about a delivery, the way back of an answer, the subject of a request, and what a
// caller confirms.

#include "channels/nats/wire/NatsAddress.h"
#include "channels/nats/wire/NatsDelivery.h"
#include "tests/fuzz/Require.h"

#include <cstdint>

namespace mirel {
namespace {

void requireNumbers(const std::string& text, std::initializer_list<std::uint64_t> numbers) {
    for (const std::uint64_t number : numbers)
        require(text.find(std::to_string(number)) != std::string::npos, "a number was there");
}

void tryDelivery(const std::string& text) {
    const auto delivery = NatsDelivery::parse(text);
    if (!delivery)
        return;
    require(text.starts_with("$JS.ACK."), "a subject for acknowledging");
    require(text.find('.' + delivery->consumer + '.') != std::string::npos, "its consumer");
    requireNumbers(text, {delivery->times, delivery->streamSequence, delivery->consumerSequence,
                          delivery->stored});
}

void tryReturn(const std::string& text) {
    const auto way = NatsReturn::parse(text);
    if (!way)
        return;
    requireNumbers(text, {way->partition, way->tenure, way->streamSequence});
    const auto again = NatsReturn::parse(way->text());
    require(again && again->text() == way->text(), "what is written can be read");
    require(again->caller == way->caller, "it leads to the same caller");
}

void tryRequest(const std::string& text) {
    static const NatsAddress& address = *new NatsAddress("nats://host/service");
    const auto request = address.parseRequest(text);
    if (!request)
        return;
    requireNumbers(text, {request->partition});
    const std::size_t point = request->caller.find('.');
    require(point != std::string::npos && point == request->caller.rfind('.'),
            "a caller is two tokens");
    if (!NatsAddress::isToken(request->caller.substr(0, point)) ||
        !NatsAddress::isToken(request->caller.substr(point + 1)))
        return;
    const auto again = address.parseRequest(
        address.requests(static_cast<unsigned>(request->partition), request->caller, "r", "l"));
    require(again && again->caller == request->caller, "a caller's requests are its own");
    require(NatsAddress::callerOfConfirmations(NatsAddress::confirmations(request->caller) + "0") ==
                request->caller,
            "and so are its confirmations");
}

void tryConfirmations(const std::string& text) {
    static_cast<void>(NatsAddress::callerOfConfirmations(text));
    for (const std::uint64_t number : readConfirmations(text))
        requireNumbers(text, {number});
}

} // namespace
} // namespace mirel

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    mirel::tryDelivery(text);
    mirel::tryReturn(text);
    mirel::tryRequest(text);
    mirel::tryConfirmations(text);
    return 0;
}
