#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <variant>
#include <vector>

namespace mirel {

/// An option of a transport, as a program offers it on its command line.
struct TransportOption {
    /// Done with the option's value instead of serving; returns what to tell about it.
    using Action = std::function<std::string(const std::string& value)>;

    /// Where the value goes; what is there before is the default. A `std::size_t` is one of the
    /// unsigned types.
    using Target = std::variant<bool*, int*, unsigned*, unsigned long*, std::chrono::milliseconds*,
                                std::string*, Action>;

    struct Range {
        int least;
        int most;
    };
    struct OneOf {
        std::vector<int> numbers;
    };
    /// The word that stands for a text where the option is explained.
    struct Text {
        std::string word;
    };

    std::string name; ///< such as --lease; no other transport has an option of that name
    Target target;
    std::string help;
    std::variant<std::monostate, Range, OneOf, Text> values{};
};

} // namespace mirel
