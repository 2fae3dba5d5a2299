#include "channels/RandomName.h"

#include <cstdint>
#include <random>
#include <sstream>
#include <unistd.h>

namespace mirel {

std::string randomName() {
    std::random_device random;
    std::ostringstream name;
    name << std::hex << ((std::uint64_t{random()} << 32) | random());
    return name.str();
}

std::string randomNameOfProcess() { return std::to_string(getpid()) + '-' + randomName(); }

std::string randomCallerName() { return "mirel-call-" + randomNameOfProcess(); }

} // namespace mirel
