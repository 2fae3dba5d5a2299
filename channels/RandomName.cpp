#include "channels/RandomName.h"

#include <cstdint>
#include <random>
#include <sstream>
#include <unistd.h>

namespace mirel {

namespace {

std::string hexadecimal(std::uint64_t number) {
    std::ostringstream text;
    text << std::hex << number;
    return text.str();
}

} // namespace

std::string randomName() {
    std::random_device random;
    return hexadecimal((std::uint64_t{random()} << 32) | random());
}

std::string randomNameOfProcess() { return std::to_string(getpid()) + '-' + randomName(); }

std::string randomCallerName() { return "mirel-call-" + randomNameOfProcess(); }

std::string randomSourceName() {
    return "mirel-call-" + std::to_string(getpid()) + '-' +
           hexadecimal(std::random_device()() & 0xffff);
}

} // namespace mirel
