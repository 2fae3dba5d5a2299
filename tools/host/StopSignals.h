#pragma once

#include <csignal>

namespace mirel {

/// SIGINT, SIGTERM and, unless it is ignored, SIGHUP as something to wait for.
class StopSignals {
public:
    /// Blocks the signals for the calling thread and those that it starts from now on, so it must
    /// exist before the first of them. Throws `std::system_error`.
    StopSignals();

    /// Lets the signals act again, which ends the process if one comes.
    ~StopSignals();

    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /// Returns when a signal has come (true) or the other descriptor is readable (false).
    bool waitForSignalOr(int otherDescriptor) const;

    /// Whether one has come.
    bool pending() const;

private:
    sigset_t m_signals{};
    int m_descriptor = -1;
};

} // namespace mirel
