#include "bench/TimedLoad.h"

#include "bench/Workload.h"
#include "framework/Invoker.h"

#include <ctime>
#include <optional>
#include <sys/prctl.h>

namespace bench {

namespace {

constexpr const char* kProtocol = "timed";

/// When the handler that this thread is in began.
thread_local Clock::time_point handlerBegan;

class TimedInvoker : public Invoker {
public:
    TimedInvoker(Invoker& timed, Placement placement) : m_timed(timed), m_placement(placement) {}

    void handleMessage(Executable* service, const char* data, int length,
                       InvokerResponse* response) override {
        // Also a thread that some contestant of before has left behind, or that began on another
        // one's core.
        static thread_local std::optional<Placement> placed;
        if (placed != m_placement)
            placeHandler(m_placement);
        placed = m_placement;
        handlerBegan = Clock::now();
        m_timed.handleMessage(service, data, length, response);
    }

    void initialise(FrameworkContext* context) override { m_timed.initialise(context); }

private:
    Invoker& m_timed;
    const Placement m_placement;
};

/// Sleeps, and does not look at the clock again and again instead, which would take a core from the
/// workers. Not at all when it is late.
void sleepUntil(Clock::time_point time) {
    if (Clock::now() >= time)
        return;
    const auto nanoseconds = time.time_since_epoch().count();
    const timespec wanted{nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &wanted, nullptr) != 0) {
    }
}

} // namespace

TimedLoad::TimedLoad(Workload& workload, int sources, Placement placement)
    : Load(Workload::requests(sources, sources, kProtocol)),
      m_placement(placement) {
    mirel::ServiceContext& context = workload.context();
    Invoker* const timed = context.findInvoker(Workload::kInterface, Workload::kProtocol);
    context.addInvoker(Workload::kInterface, kProtocol,
                       std::make_unique<TimedInvoker>(*timed, placement));
}

void TimedLoad::runClosed(std::size_t count) {
    m_arrivals.clear();
    prepareRun(count);
    for (std::size_t i = 0; i < count; ++i)
        run(1);
}

void TimedLoad::runOpen(const Durations& arrivals) {
    m_arrivals = arrivals;
    prepareRun(arrivals.size());
    m_begin = Clock::now();
    run(arrivals.size());
}

void TimedLoad::prepareRun(std::size_t count) {
    m_first = std::exchange(m_next, m_next + count);
    m_readAt.assign(count, {});
    m_begunAt.assign(count, {});
    m_answeredAt.assign(count, {});
}

void TimedLoad::appendTo(std::map<std::string, Durations>& samples) const {
    for (std::size_t i = 0; i < m_readAt.size(); ++i) {
        samples["read_handler"].push_back(m_begunAt[i] - m_readAt[i]);
        samples["read_answer"].push_back(m_answeredAt[i] - m_readAt[i]);
        if (!m_arrivals.empty())
            samples["arrival_answer"].push_back(m_answeredAt[i] - (m_begin + m_arrivals[i]));
    }
}

void TimedLoad::beforeRead(std::size_t number) {
    if (number > 0)
        return;
    placeReader(m_placement);
    prctl(PR_SET_TIMERSLACK, 1UL); // of the reading thread; what it starts inherits it
}

void TimedLoad::read(std::size_t number, CommsChannelDataContainerMessage& msg) {
    const std::size_t index = number - m_first;
    if (!m_arrivals.empty())
        sleepUntil(m_begin + m_arrivals[index]);
    Load::read(number, msg);
    msg.setRequestId(static_cast<long>(number));
    m_readAt[index] = Clock::now();
}

void TimedLoad::answer(mirel::Answer answer) {
    const Clock::time_point now = Clock::now();
    const std::size_t index = static_cast<std::size_t>(answer.requestId) - m_first;
    m_begunAt[index] = handlerBegan;
    m_answeredAt[index] = now;
    Load::answer(std::move(answer));
}

} // namespace bench
