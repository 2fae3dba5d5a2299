#pragma once

#include <string>

/// Turns values into bytes and back.
class Serializer {
public:
    /// Reads one integer, which must be all that `data` holds. `MirelException` when the data are
    /// truncated, of another type, out of the range of int, or followed by something.
    static void deserialize(std::string& data, int& value);

    /// The library does not use it. It is for who sends timer events.
    static std::string serialize(int value);
};
