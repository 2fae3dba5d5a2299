// A service library as users write them, for the tests of the context that loads it.

#include "framework/Service.h"
#include "standalone/StandaloneContext.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

class Echo : public Service {
public:
    std::string reversed(std::string_view data) const { return {data.rbegin(), data.rend()}; }

    void timerEvent(int) override {}
    void handleMessage(const char*, int, std::string, CommsChannelIfc*,
                       CommsChannelDataContainerMessage&) override {}
};

} // namespace

extern "C" Executable* makeEcho(mirel::ServiceSetup& setup) {
    setup.context.addHandler<Echo>(
        setup.interface, "text",
        [](const Echo& echo, std::string_view data) { return echo.reversed(data); });
    return new Echo;
}

extern "C" Executable* makeNothing(mirel::ServiceSetup&) { return nullptr; }

extern "C" Executable* makeTrouble(mirel::ServiceSetup&) {
    throw std::runtime_error("no configuration");
}
