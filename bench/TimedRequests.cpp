#include "bench/TimedRequests.h"

#include "bench/Workload.h"
#include "framework/Invoker.h"

#include <algorithm>
#include <ctime>
#include <functional>
#include <optional>
#include <sys/prctl.h>

namespace bench {

namespace {

using Clock = TimedRequests::Clock;

constexpr const char* kProtocol = "timed";

/// When the handler that this thread is in began.
thread_local Clock::time_point handlerBegan;

class TimedInvoker : public Invoker {
public:
    TimedInvoker(Invoker& timed, Placement placement) : m_timed(timed), m_placement(placement) {}

    void handleMessage(Executable* service, const char* data, int length,
                       InvokerResponse* response) override {
        placeThisThread();
        handlerBegan = Clock::now();
        m_timed.handleMessage(service, data, length, response);
    }

    void initialise(FrameworkContext* context) override { m_timed.initialise(context); }

private:
    /// Also a thread that some contestant of before has left behind, or that began on another
    /// one's core.
    void placeThisThread() const {
        static thread_local std::optional<Placement> placed;
        if (placed == m_placement)
            return;
        placeHandler(m_placement);
        placed = m_placement;
    }

    Invoker& m_timed;
    const Placement m_placement;
};

std::vector<CommsChannelDataContainerMessage> makeRequests(int sources) {
    std::vector<CommsChannelDataContainerMessage> requests = Workload::requests(sources, sources);
    for (CommsChannelDataContainerMessage& request : requests)
        request.protocol() = kProtocol;
    return requests;
}

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

TimedRequests::Durations differences(const std::vector<Clock::time_point>& from,
                                     const std::vector<Clock::time_point>& to) {
    TimedRequests::Durations result(to.size());
    std::transform(to.begin(), to.end(), from.begin(), result.begin(), std::minus<>());
    return result;
}

} // namespace

class TimedChannel : public mirel::AnsweringChannel {
public:
    explicit TimedChannel(TimedRequests& requests) : m_requests(requests) {}

    bool readMessage(CommsChannelDataContainerMessage& msg) override {
        if (m_read == 0) {
            placeReader(m_requests.m_placement);
            prctl(PR_SET_TIMERSLACK, 1UL); // of the reading thread; what it starts inherits it
        }
        while (m_read == m_requests.m_released && !m_requests.m_closed)
            m_requests.m_reader.sleep();
        if (m_requests.m_closed)
            return false;
        m_requests.read(m_read++, msg);
        return true;
    }

    void close() override {
        m_requests.m_closed = true;
        m_requests.m_reader.wake();
    }

    std::shared_ptr<mirel::AnswerSink> answerSink() override {
        return {std::shared_ptr<void>(), &m_requests};
    }

private:
    TimedRequests& m_requests;
    std::size_t m_read = 0;
};

TimedRequests::TimedRequests(Workload& workload, int sources, Placement placement)
    : m_requests(makeRequests(sources)),
      m_placement(placement) {
    mirel::ServiceContext& context = workload.context();
    Invoker* const timed = context.findInvoker(Workload::kInterface, Workload::kProtocol);
    context.addInvoker(Workload::kInterface, kProtocol,
                       std::make_unique<TimedInvoker>(*timed, placement));
}

std::unique_ptr<CommsChannelIfc> TimedRequests::channel() {
    return std::make_unique<TimedChannel>(*this);
}

void TimedRequests::runClosed(std::size_t count) {
    m_arrivals.clear();
    prepareRun(count);
    for (std::size_t i = 0; i < count; ++i)
        releaseAndAwait(1);
}

void TimedRequests::runOpen(const Durations& arrivals) {
    m_arrivals = arrivals;
    prepareRun(arrivals.size());
    m_begin = Clock::now();
    releaseAndAwait(arrivals.size());
}

/// While nothing is released, nobody else uses what belongs to the run.
void TimedRequests::prepareRun(std::size_t count) {
    m_first = m_released;
    m_readAt.assign(count, {});
    m_begunAt.assign(count, {});
    m_answeredAt.assign(count, {});
}

void TimedRequests::releaseAndAwait(std::size_t count) {
    m_released += count;
    m_reader.wake();
    m_caller.sleep();
}

void TimedRequests::read(std::size_t number, CommsChannelDataContainerMessage& msg) {
    const std::size_t index = number - m_first;
    if (inOpenLoop())
        sleepUntil(arrival(index));
    msg = m_requests[number % m_requests.size()];
    msg.setRequestId(static_cast<long>(number));
    m_readAt[index] = Clock::now();
}

void TimedRequests::answer(mirel::Answer answer) {
    const Clock::time_point now = Clock::now();
    const std::size_t index = static_cast<std::size_t>(answer.requestId) - m_first;
    m_begunAt[index] = handlerBegan;
    m_answeredAt[index] = now;
    if (++m_answered == m_released)
        m_caller.wake();
}

TimedRequests::Durations TimedRequests::readToHandler() const {
    return differences(m_readAt, m_begunAt);
}
TimedRequests::Durations TimedRequests::readToAnswer() const {
    return differences(m_readAt, m_answeredAt);
}
TimedRequests::Durations TimedRequests::arrivalToAnswer() const {
    Durations result(m_answeredAt.size());
    for (std::size_t i = 0; i < result.size(); ++i)
        result[i] = m_answeredAt[i] - arrival(i);
    return result;
}

} // namespace bench
