// Writes down what it runs, in the file that MIREL_HISTORY names. A request's data is "SOURCE
// NUMBER", and behind them what the request does beside that: "work MICROSECONDS", or "die".

#include "framework/Service.h"
#include "runtime/values/ServiceContext.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sstream>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

class RecordingService : public Service {
public:
    RecordingService()
        : m_history(open(std::getenv("MIREL_HISTORY"), O_WRONLY | O_CREAT | O_APPEND, 0600)) {}
    ~RecordingService() override { close(m_history); }

    void timerEvent(int) override {}
    void handleMessage(const char* data, int size, std::string, CommsChannelIfc*,
                       CommsChannelDataContainerMessage&) override {
        perform({data, static_cast<std::size_t>(size)});
    }

    std::string perform(std::string_view data) const {
        std::istringstream words{std::string(data)};
        std::string source, verb;
        long number = 0;
        useconds_t time = 0;
        words >> source >> number >> verb >> time;
        if (verb == "die")
            raise(SIGKILL);
        usleep(time);
        const std::string line = source + " " + std::to_string(number) + "\n";
        if (write(m_history, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
            std::abort();
        return std::string(data);
    }

private:
    const int m_history;
};

} // namespace

extern "C" Executable* makeRecordingService(mirel::ServiceSetup& setup) {
    setup.context.addHandler<RecordingService>(
        "Recording", "run",
        [](RecordingService& service, std::string_view data) { return service.perform(data); });
    return new RecordingService;
}
