// Services that fail where a host has to notice.

#include "framework/Logging.h"
#include "framework/Service.h"
#include "runtime/threads/ThreadStartHook.h"
#include "runtime/values/BusinessFailure.h"
#include "runtime/values/ServiceContext.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

class FaultyService : public Service {
public:
    void timerEvent(int) override {}
    void handleMessage(const char* data, int, std::string, CommsChannelIfc*,
                       CommsChannelDataContainerMessage&) override {
        if (std::strcmp(data, "hang") == 0) {
            logAppUni("FaultyService", __FILE__, 2, __LINE__, "hanging");
            for (;;)
                pause();
        }
        if (std::strncmp(data, "open ", 5) == 0) {
            logAppUni("FaultyService", __FILE__, 2, __LINE__, "opening");
            const std::ifstream untilSomeoneWrites(data + 5);
        }
        throw std::runtime_error("legacy messages are too much");
    }
};

/// Whose end is the process's.
class AbortingService : public FaultyService {
public:
    ~AbortingService() override { std::abort(); }
};

} // namespace

extern "C" Executable* makeFaultyService(mirel::ServiceSetup&) { return new FaultyService; }

/// Whose requests need a worker each for a while.
extern "C" Executable* makeSlowService(mirel::ServiceSetup& setup) {
    setup.context.addHandler<FaultyService>("Ledger", "text", [](FaultyService&, std::string_view) {
        usleep(2000);
        return "done";
    });
    return new FaultyService;
}

extern "C" Executable* makeAbortingService(mirel::ServiceSetup& setup) {
    setup.context.addHandler<FaultyService>(
        "Ledger", "text", [](FaultyService&, std::string_view) { return "done"; });
    return new AbortingService;
}

/// Whose process gets no more than two workers.
extern "C" Executable* makeServiceShortOfThreads(mirel::ServiceSetup& setup) {
    setup.context.addHandler<FaultyService>(
        "Ledger", "text", [](FaultyService&, std::string_view) { return "done"; });
    static std::atomic<int> started = 0;
    mirel::setThreadStartHook([] { return started++ < 2 ? 0 : EAGAIN; });
    return new FaultyService;
}

/// Echoes, declines, fails, hangs, and answers with as many bytes as it is asked for.
extern "C" Executable* makeUnevenService(mirel::ServiceSetup& setup) {
    using Data = std::string_view;
    auto& context = setup.context;
    context.addHandler<FaultyService>("Ledger", "echo",
                                      [](FaultyService&, Data data) { return std::string(data); });
    context.addHandler<FaultyService>("Ledger", "decline", [](FaultyService&, Data) -> std::string {
        throw mirel::BusinessFailure("no cover");
    });
    context.addHandler<FaultyService>("Ledger", "fail", [](FaultyService&, Data) -> std::string {
        throw std::runtime_error("no account 17");
    });
    context.addHandler<FaultyService>("Ledger", "hang", [](FaultyService&, Data) -> std::string {
        for (;;)
            pause();
    });
    context.addHandler<FaultyService>("Ledger", "large", [](FaultyService&, Data data) {
        return std::string(std::stoul(std::string(data)), 'x');
    });
    return new FaultyService;
}

extern "C" Executable* throwInstead(mirel::ServiceSetup&) {
    throw std::runtime_error("no configuration");
}
