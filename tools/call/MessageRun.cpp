#include "call/MessageRun.h"

#include "call/CallOptions.h"
#include "call/Exchange.h"

#include <iostream>
#include <utility>

namespace mirel {

namespace {

class Printer : public Exchange::Listener {
public:
    explicit Printer(std::chrono::milliseconds deadline) : m_deadline(deadline) {}

    void sent(const std::string& source) override { std::cout << source << ": sent\n"; }

    void answered(const Answer& answer, MirelThreadPriority, Exchange::Clock::duration) override {
        std::cout << answer.sourceChannel << (answer.succeeded ? ": " : ": failed: ") << answer.data
                  << '\n';
    }

    void unanswered(const std::string& source) override {
        std::cout << source << ": unanswered after " << m_deadline.count() << " ms\n";
    }

private:
    const std::chrono::milliseconds m_deadline;
};

} // namespace

bool runMessages(const CallOptions& options,
                 std::vector<CommsChannelDataContainerMessage> messages) {
    const std::unique_ptr<Caller> caller = options.transports.openCaller(options.connection);
    Printer printer(options.deadline);
    Exchange exchange(*caller, options.window, options.deadline, printer);
    for (CommsChannelDataContainerMessage& msg : messages) {
        msg.channel() = options.connection.url;
        exchange.send(std::move(msg));
    }
    exchange.finish();
    const Exchange::Outcome& outcome = exchange.outcome();
    if (outcome.outOfOrder + outcome.unexpected != 0)
        std::cout << "out of order: " << outcome.outOfOrder
                  << ", answers to nothing: " << outcome.unexpected << '\n';
    if (outcome.skipped != 0)
        std::cout << "skipped " << outcome.skipped << " messages that are no answers\n";
    return outcome.good();
}

} // namespace mirel
