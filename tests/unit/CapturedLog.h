#pragma once

#include "standalone/LogControl.h"

#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// Collects what is logged while it lives, instead of standard error.
class CapturedLog {
public:
    CapturedLog()
        : m_former(mirel::setLogSink([this](const mirel::LogLine& line) {
              const std::lock_guard lock(m_mutex);
              m_lines.push_back(std::to_string(line.level) + " " + line.component + ": " +
                                std::string(line.text));
          })) {}
    ~CapturedLog() { mirel::setLogSink(std::move(m_former)); }

    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    /// Each as "level component: text".
    std::vector<std::string> lines() const {
        const std::lock_guard lock(m_mutex);
        return m_lines;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines; ///< guarded by m_mutex
    mirel::LogSink m_former;
};
