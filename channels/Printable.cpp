#include "channels/Printable.h"

#include <algorithm>
#include <cstddef>

namespace mirel {

namespace {

constexpr std::size_t kLongest = 60;

}

std::string printable(std::string_view name) {
    std::string result(name.substr(0, kLongest));
    std::replace_if(
        result.begin(), result.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    if (name.size() > kLongest)
        result += "...";
    return result;
}

} // namespace mirel
