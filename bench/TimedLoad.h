#pragma once

#include "bench/Benchmarks.h"
#include "bench/Load.h"
#include "bench/Placement.h"

#include <map>
#include <string>
#include <vector>

namespace bench {

class Workload;

/// A load that keeps to a pace and notes three times of each request: when the channel's
/// `readMessage` was about to return with it, when its handler began, and when it was answered.
class TimedLoad : public Load {
public:
    /// Adds to the workload's context an invoker that notes the time and goes on to the workload's
    /// own. All contestants answer on the thread that handles, after the handler.
    /// The threads that read and handle are bound when they first do so.
    TimedLoad(Workload& workload, int sources, Placement placement = Placement::eFree);

    /// Closed loop: the caller waits for the answer to each request before it sends the next one,
    /// so that every thread on the way has gone to sleep meanwhile.
    void runClosed(std::size_t count);

    /// Open loop: each request is read at its distance from the beginning (which grow), or as soon
    /// as the reader comes for it. Returns when all are answered.
    void runOpen(const Durations& arrivals);

    /// Appends what the last run has noted: "read_handler", "read_answer" and, of an open loop,
    /// "arrival_answer", which has in it what the reader was late.
    void appendTo(std::map<std::string, Durations>& samples) const;

    void answer(mirel::Answer answer) override;

private:
    using Times = std::vector<Clock::time_point>;

    void prepareRun(std::size_t count);
    void beforeRead(std::size_t number) override;
    void read(std::size_t number, CommsChannelDataContainerMessage& msg) override;

    const Placement m_placement;

    // Of this run. While nothing is released, nobody but the caller uses it.
    std::size_t m_next = 0;  ///< number of the first request of the next run
    std::size_t m_first = 0; ///< of this one
    Durations m_arrivals;    ///< since m_begin; empty in a closed loop
    Clock::time_point m_begin;

    // Each apart, so that the reader and the workers do not write to the same cache lines.
    Times m_readAt;
    Times m_begunAt;
    Times m_answeredAt;
};

} // namespace bench
