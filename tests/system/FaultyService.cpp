// A service that fails where a host has to notice.

#include "framework/Service.h"
#include "standalone/StandaloneContext.h"

#include <stdexcept>

namespace {

class FaultyService : public Service {
public:
    void timerEvent(int) override {}
    void handleMessage(const char*, int, std::string, CommsChannelIfc*,
                       CommsChannelDataContainerMessage&) override {
        throw std::runtime_error("legacy messages are too much");
    }
};

} // namespace

extern "C" Executable* makeFaultyService(mirel::ServiceSetup&) { return new FaultyService; }

extern "C" Executable* throwInstead(mirel::ServiceSetup&) {
    throw std::runtime_error("no configuration");
}
