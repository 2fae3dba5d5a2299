#include "channels/Envelope.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <msgpack.hpp>
#include <utility>

namespace mirel {

namespace {

constexpr int kVersion = 1;
constexpr int kVersionWithRefusals = 2;

enum Kind : int { eMessage = 0, eAnswer = 1 };

// Elements of the arrays, the version and the kind included. The second version has one more each.
constexpr std::uint32_t kMessageFields = 12;
constexpr std::uint32_t kAnswerFields = 6;

// What one envelope usually needs at most; the packer's and the decoder's own choice is 8 KiB, for
// which each call would go the long way through the allocator.
constexpr std::size_t kUsualBytes = 256;
constexpr std::size_t kUsualObjects = 512;

/// Lets the packer append to a string.
class Appender {
public:
    explicit Appender(std::size_t dataBytes) { m_bytes.reserve(kUsualBytes + dataBytes); }
    void write(const char* bytes, std::size_t size) { m_bytes.append(bytes, size); }
    std::string take() { return std::move(m_bytes); }

private:
    std::string m_bytes;
};

using Packer = msgpack::packer<Appender>;

std::uint32_t lengthOf(const std::string& text) {
    if (text.size() > std::numeric_limits<std::uint32_t>::max())
        throw EnvelopeError("a text of " + std::to_string(text.size()) + " bytes is too long");
    return static_cast<std::uint32_t>(text.size());
}

void packText(Packer& packer, const std::string& text) {
    const std::uint32_t length = lengthOf(text);
    packer.pack_str(length).pack_str_body(text.data(), length);
}

void packData(Packer& packer, const std::string& data) {
    const std::uint32_t length = lengthOf(data);
    packer.pack_bin(length).pack_bin_body(data.data(), length);
}

/// The elements of one envelope in their order, each checked for its type. Refers to the bytes.
class FieldReader {
public:
    FieldReader(std::string_view bytes, Kind kind, std::uint32_t fields) {
        unpack(bytes);
        const int version = integer<int>("version");
        if (version != kVersion && version != kVersionWithRefusals)
            throw EnvelopeError("version " + std::to_string(version) +
                                " is not understood, only 1 and 2");
        m_withRefusals = version == kVersionWithRefusals;
        if (m_withRefusals)
            ++fields;
        if (integer<int>("kind") != kind)
            throw EnvelopeError(kind == eMessage ? "not a message" : "not an answer");
        if (m_array.size != fields)
            throw EnvelopeError(std::to_string(m_array.size) + " fields instead of " +
                                std::to_string(fields));
    }

    bool withRefusals() const { return m_withRefusals; }

    template <typename T>
    T integer(const char* name) {
        try {
            return next(name).as<T>();
        } catch (const msgpack::type_error&) {
            throw EnvelopeError(std::string(name) + " is not a value of its type and range");
        }
    }

    std::string text(const char* name) {
        const msgpack::object& field = next(name);
        if (field.type != msgpack::type::STR)
            throw EnvelopeError(std::string(name) + " is not a text");
        return {field.via.str.ptr, field.via.str.size};
    }

    std::string data(const char* name) {
        const msgpack::object& field = next(name);
        if (field.type != msgpack::type::BIN)
            throw EnvelopeError(std::string(name) + " is not binary data");
        return {field.via.bin.ptr, field.via.bin.size};
    }

private:
    void unpack(std::string_view bytes) {
        // One flat array with no more elements than are known, so that a few bytes that announce
        // much cannot make the decoder allocate it. Texts are referred to, not copied.
        const msgpack::unpack_limit limit(kMessageFields + 1, 0, bytes.size(), bytes.size(), 0, 1);
        const auto refer = [](msgpack::type::object_type, std::size_t, void*) { return true; };
        std::size_t used = 0;
        try {
            m_envelope =
                msgpack::unpack(m_zone, bytes.data(), bytes.size(), used, refer, nullptr, limit);
        } catch (const msgpack::unpack_error& failure) {
            throw EnvelopeError(std::string("not a complete envelope: ") + failure.what());
        }
        if (used != bytes.size())
            throw EnvelopeError(std::to_string(bytes.size() - used) + " bytes too many");
        if (m_envelope.type != msgpack::type::ARRAY)
            throw EnvelopeError("not an array");
        m_array = m_envelope.via.array;
    }

    const msgpack::object& next(const char* name) {
        if (m_next == m_array.size)
            throw EnvelopeError(std::string(name) + " is missing");
        return m_array.ptr[m_next++];
    }

    msgpack::zone m_zone{kUsualObjects};
    msgpack::object m_envelope; ///< in m_zone, as its elements
    msgpack::object_array m_array{};
    bool m_withRefusals = false;
    std::uint32_t m_next = 0;
};

} // namespace

std::string encode(CommsChannelDataContainerMessage& msg,
                   std::optional<std::uint64_t> refusalsKnown) {
    const std::string data = msg.getData();
    Appender bytes(data.size());
    Packer packer(bytes);
    packer.pack_array(kMessageFields + (refusalsKnown ? 1 : 0));
    packer.pack(refusalsKnown ? kVersionWithRefusals : kVersion).pack(static_cast<int>(eMessage));
    packer.pack(msg.msgType()).pack(static_cast<std::int64_t>(msg.requestId()));
    packText(packer, msg.sourceChannel());
    packText(packer, msg.channel());
    packText(packer, msg.protocol());
    packText(packer, msg.interface());
    packer.pack(static_cast<int>(msg.priority()));
    packText(packer, msg.proxyCallMode());
    packText(packer, msg.remoteContext());
    packData(packer, data);
    if (refusalsKnown)
        packer.pack(*refusalsKnown);
    return bytes.take();
}

std::string encode(const Answer& answer) {
    Appender bytes(answer.data.size());
    Packer packer(bytes);
    const bool refused = answer.refusal != 0;
    packer.pack_array(kAnswerFields + (refused ? 1 : 0));
    packer.pack(refused ? kVersionWithRefusals : kVersion).pack(static_cast<int>(eAnswer));
    packer.pack(answer.succeeded).pack(static_cast<std::int64_t>(answer.requestId));
    packText(packer, answer.sourceChannel);
    packData(packer, answer.data);
    if (refused)
        packer.pack(answer.refusal);
    return bytes.take();
}

SentMessage decodeSent(std::string_view bytes) {
    FieldReader fields(bytes, eMessage, kMessageFields);
    SentMessage sent;
    CommsChannelDataContainerMessage& msg = sent.msg;
    msg.setMsgType(fields.integer<int>("message type"));
    msg.setRequestId(fields.integer<long>("request id"));
    msg.sourceChannel() = fields.text("source channel");
    msg.channel() = fields.text("channel");
    msg.protocol() = fields.text("protocol");
    msg.interface() = fields.text("interface");
    msg.setPriority(static_cast<MirelThreadPriority>(fields.integer<int>("priority")));
    msg.proxyCallMode() = fields.text("proxy call mode");
    msg.remoteContext() = fields.text("remote context");
    msg.setData(fields.data("data"));
    if (fields.withRefusals())
        sent.refusalsKnown = fields.integer<std::uint64_t>("number of the last refusal");
    return sent;
}

CommsChannelDataContainerMessage decodeMessage(std::string_view bytes) {
    return decodeSent(bytes).msg;
}

Answer decodeAnswer(std::string_view bytes) {
    FieldReader fields(bytes, eAnswer, kAnswerFields);
    Answer answer;
    answer.succeeded = fields.integer<bool>("outcome");
    answer.requestId = fields.integer<long>("request id");
    answer.sourceChannel = fields.text("source channel");
    answer.data = fields.data("data");
    if (fields.withRefusals()) {
        answer.refusal = fields.integer<std::uint64_t>("number of the refusal");
        if (answer.refusal == 0)
            throw EnvelopeError("refusals are numbered from 1");
    }
    return answer;
}

} // namespace mirel
