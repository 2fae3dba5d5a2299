#pragma once

#include <string>

/// Turns values into bytes and back. The encoding is msgpack's.
class Serializer {
public:
    static std::string serialize(int value);

    /// Reads one integer, which must be all that `data` holds. `MirelException` when the data are
    /// truncated, of another type, out of the range of int, or followed by something.
    static void deserialize(std::string& data, int& value);
};
