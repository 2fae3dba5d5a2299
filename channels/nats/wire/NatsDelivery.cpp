#include "channels/nats/wire/NatsDelivery.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>

namespace mirel {

namespace {

template <typename Number>
bool read(std::string_view text, Number& number) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return stop == end && error == std::errc();
}

/// The text up to the separator, which is removed with it.
std::string_view cut(std::string_view& text, char separator) {
    const std::string_view part = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(text.size(), part.size() + 1));
    return part;
}

} // namespace

// $JS.ACK.STREAM.CONSUMER.TIMES.STREAM-SEQUENCE.CONSUMER-SEQUENCE.TIME.PENDING; a server that has
// accounts may put two tokens more behind ACK and something behind the end.
std::optional<NatsDelivery> NatsDelivery::parse(std::string_view subject) {
    std::array<std::string_view, 12> tokens;
    std::size_t count = 0;
    while (!subject.empty() && count < tokens.size())
        tokens[count++] = cut(subject, '.');
    if (count < 9 || tokens[0] != "$JS" || tokens[1] != "ACK")
        return std::nullopt;
    const std::size_t consumer = count == 9 ? 3 : 5;
    NatsDelivery delivery;
    delivery.consumer = tokens[consumer];
    if (!read(tokens[consumer + 1], delivery.times) ||
        !read(tokens[consumer + 2], delivery.streamSequence) ||
        !read(tokens[consumer + 3], delivery.consumerSequence) ||
        !read(tokens[consumer + 4], delivery.stored))
        return std::nullopt;
    return delivery;
}

std::string NatsReturn::text() const {
    return caller + ' ' + std::to_string(partition) + ' ' + std::to_string(tenure) + ' ' +
           std::to_string(streamSequence);
}

std::optional<NatsReturn> NatsReturn::parse(const std::string& text) {
    std::string_view rest = text;
    NatsReturn result;
    result.caller = cut(rest, ' ');
    if (!read(cut(rest, ' '), result.partition) || !read(cut(rest, ' '), result.tenure) ||
        !read(rest, result.streamSequence))
        return std::nullopt;
    return result;
}

std::vector<std::uint64_t> readConfirmations(std::string_view bytes) {
    std::vector<std::uint64_t> numbers;
    while (!bytes.empty())
        if (!read(cut(bytes, ' '), numbers.emplace_back()))
            return {};
    return numbers;
}

} // namespace mirel
