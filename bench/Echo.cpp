#include "bench/Echo.h"

#include <cstring>
#include <stdexcept>

namespace bench {

namespace {

constexpr std::size_t kSize = 64;

} // namespace

std::string EchoCaller::dataOf(std::size_t number) {
    std::string data(kSize, 'x');
    std::memcpy(data.data(), &number, sizeof number);
    return data;
}

std::size_t EchoCaller::numberOf(std::string_view data) {
    if (data.size() != kSize || data.back() != 'x')
        throw std::runtime_error("an answer is not what was sent");
    std::size_t number = 0;
    std::memcpy(&number, data.data(), sizeof number);
    return number;
}

} // namespace bench
