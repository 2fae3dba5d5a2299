#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace mirel {

/// The callback channel of a message over ZeroMQ: its caller's routing id, and behind it the size
/// of the message, so that whoever answers it gives back what it took of its caller's share.
namespace zmqReturn {

using Size = std::uint32_t; ///< ZeroMQ's limit for a message is less

inline std::string text(std::string caller, std::size_t bytes) {
    const auto size = static_cast<Size>(bytes);
    return caller.append(reinterpret_cast<const char*>(&size), sizeof size);
}

inline std::string_view caller(const std::string& text) {
    return std::string_view(text).substr(0, text.size() - sizeof(Size));
}

/// Leaves the caller in `text`, and returns the message's size.
inline std::size_t takeSize(std::string& text) {
    Size size = 0;
    const std::size_t callerSize = text.size() - sizeof size;
    std::memcpy(&size, text.data() + callerSize, sizeof size);
    text.resize(callerSize);
    return size;
}

} // namespace zmqReturn

} // namespace mirel
