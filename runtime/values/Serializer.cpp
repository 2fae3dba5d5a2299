#include "framework/Serializer.h"

#include "framework/MirelException.h"

#include <msgpack.hpp>

namespace {

[[noreturn]] void refuse(const std::string& why) {
    throw MirelException("not one serialised integer: " + why, __FILE__, __LINE__);
}

} // namespace

std::string Serializer::serialize(int value) {
    msgpack::sbuffer bytes;
    msgpack::pack(bytes, value);
    return {bytes.data(), bytes.size()};
}

void Serializer::deserialize(std::string& data, int& value) {
    // Nothing but a scalar is let through, so that a few bytes that announce a huge array cannot
    // make the decoder allocate it.
    const msgpack::unpack_limit scalarsOnly(0, 0, 0, 0, 0, 0);
    std::size_t used = 0;
    msgpack::object_handle decoded;
    try {
        msgpack::unpack(decoded, data.data(), data.size(), used, nullptr, nullptr, scalarsOnly);
    } catch (const msgpack::unpack_error& failure) {
        refuse(failure.what());
    }
    if (used != data.size())
        refuse(std::to_string(data.size() - used) + " more bytes follow");
    try {
        value = decoded.get().as<int>();
    } catch (const msgpack::type_error&) {
        refuse("another type, or out of range");
    }
}
