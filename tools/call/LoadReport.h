#pragma once

#include "call/Exchange.h"

#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace mirel {

/// What a load has measured.
struct LoadReport {
    unsigned long requests = 0;
    unsigned long sources = 0;
    std::chrono::duration<double> time{};
    /// Of the answered requests, by their priority.
    std::map<MirelThreadPriority, std::vector<Exchange::Clock::duration>> latencies;
    std::string firstFailure; ///< its text
    Exchange::Outcome outcome;
};

void write(std::ostream& out, LoadReport report);

} // namespace mirel
