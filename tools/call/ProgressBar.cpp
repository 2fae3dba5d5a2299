#include "call/ProgressBar.h"

#include <cstdint>
#include <iostream>
#include <string>
#include <unistd.h>

namespace mirel {

namespace {

constexpr unsigned long kWidth = 40;
constexpr std::chrono::milliseconds kBetweenUpdates{100};

} // namespace

ProgressBar::ProgressBar(unsigned long total)
    : m_terminal(isatty(STDERR_FILENO) == 1),
      m_total(total) {}

ProgressBar::~ProgressBar() {
    if (m_terminal)
        std::cerr << "\r\033[K" << std::flush;
}

void ProgressBar::show(unsigned long done) {
    if (!m_terminal)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (now < m_nextUpdate)
        return;
    m_nextUpdate = now + kBetweenUpdates;
    const auto filled = static_cast<unsigned long>(std::uint64_t{kWidth} * done / m_total);
    std::cerr << "\r[" << std::string(filled, '#') << std::string(kWidth - filled, ' ') << "] "
              << done << '/' << m_total << std::flush;
}

} // namespace mirel
