#pragma once

#include "call/Exchange.h"

#include <ostream>
#include <string>
#include <vector>

namespace mirel {

/// What a load has measured.
struct LoadReport {
    unsigned long requests = 0;
    unsigned long sources = 0;
    std::chrono::duration<double> time{};
    std::vector<Exchange::Clock::duration> latencies; ///< of the answered requests
    std::string firstFailure;                         ///< its text
    Exchange::Outcome outcome;
};

void write(std::ostream& out, LoadReport report);

} // namespace mirel
