#pragma once

#include <chrono>

namespace mirel {

/// A bar on standard error; nothing unless that is a terminal.
class ProgressBar {
public:
    explicit ProgressBar(unsigned long total);

    /// Removes the bar.
    ~ProgressBar();

    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void show(unsigned long done);

private:
    const bool m_terminal;
    const unsigned long m_total;
    std::chrono::steady_clock::time_point m_nextUpdate{};
};

} // namespace mirel
