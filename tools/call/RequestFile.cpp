#include "call/RequestFile.h"

#include "call/Messages.h"
#include "channels/Envelope.h"
#include "framework/MirelException.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace mirel {

namespace {

using nlohmann::json;

/// What is wrong with one line.
class LineError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

const json& field(const json& line, const char* name) {
    const auto found = line.find(name);
    if (found == line.end())
        throw LineError(std::string(name) + " is missing");
    return *found;
}

std::string text(const json& line, const char* name) {
    const json& value = field(line, name);
    if (!value.is_string())
        throw LineError(std::string(name) + " must be a text");
    return value.get<std::string>();
}

std::string nonEmptyText(const json& line, const char* name) {
    std::string value = text(line, name);
    if (value.empty())
        throw LineError(std::string(name) + " must not be empty");
    return value;
}

int integer(const json& line, const char* name, int smallest, int largest) {
    const json& value = field(line, name);
    const bool fits = value.is_number_integer() &&
                      (!value.is_number_unsigned() ||
                       value.get<std::uint64_t>() <= std::numeric_limits<std::int64_t>::max()) &&
                      value.get<std::int64_t>() >= smallest && value.get<std::int64_t>() <= largest;
    if (!fits)
        throw LineError(std::string(name) + " must be an integer from " + std::to_string(smallest) +
                        " to " + std::to_string(largest));
    return value.get<int>();
}

void checkFields(const json& line, std::vector<std::string> known) {
    known.insert(known.end(), {"kind", "source", "priority"});
    for (const auto& [name, value] : line.items()) {
        if (std::find(known.begin(), known.end(), name) == known.end())
            throw LineError("\"" + name + "\" is no field of this kind of message");
    }
}

CommsChannelDataContainerMessage messageOf(const json& line, const std::string& source) {
    if (!line.is_object())
        throw LineError("not a JSON object");
    Sender sender{source};
    if (line.contains("source"))
        sender.source = text(line, "source");
    if (line.contains("priority"))
        sender.priority = integer(line, "priority", ePriorityLow, ePriorityHigh);

    const std::string kind = text(line, "kind");
    if (kind == "request") {
        checkFields(line, {"interface", "protocol", "data"});
        return makeRequest(sender, nonEmptyText(line, "interface"), nonEmptyText(line, "protocol"),
                           text(line, "data"));
    }
    if (kind == "timer") {
        checkFields(line, {"timerId"});
        return makeTimerEvent(sender, integer(line, "timerId", std::numeric_limits<int>::min(),
                                              std::numeric_limits<int>::max()));
    }
    if (kind == "legacy") {
        checkFields(line, {"data"});
        return makeLegacyMessage(sender, text(line, "data"));
    }
    throw LineError("kind must be request, timer or legacy");
}

json parse(const std::string& line) {
    try {
        return json::parse(line);
    } catch (const json::parse_error& failure) {
        throw LineError("not JSON from byte " + std::to_string(failure.byte) + " on");
    } catch (const json::exception&) {
        throw LineError("a number in it is too large");
    }
}

} // namespace

std::vector<CommsChannelDataContainerMessage> readRequests(std::istream& in,
                                                           const std::string& name,
                                                           const std::string& source,
                                                           std::size_t maxMessageBytes) {
    std::vector<CommsChannelDataContainerMessage> messages;
    unsigned long number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        try {
            messages.push_back(messageOf(parse(line), source));
            if (encode(messages.back()).size() > maxMessageBytes)
                throw LineError("the message is larger than " + std::to_string(maxMessageBytes) +
                                " bytes");
        } catch (const LineError& failure) {
            throw MirelException(name + " line " + std::to_string(number) + ": " + failure.what(),
                                 __FILE__, __LINE__);
        }
    }
    if (in.bad())
        throw MirelException(name + " cannot be read", __FILE__, __LINE__);
    return messages;
}

} // namespace mirel
