#pragma once

#include <chrono>
#include <ostream>
#include <string>

namespace mirel {

struct ChannelCounters;

/// Writes what a host has done, to be called when everything has ended.
void writeSummary(std::ostream& out, const std::string& interface, const ChannelCounters& channel,
                  unsigned long mostWorkers, unsigned long restarts,
                  std::chrono::duration<double> served);

} // namespace mirel
