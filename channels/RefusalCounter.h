#pragma once

#include <chrono>
#include <mutex>
#include <string>

namespace mirel {

/// Counts what a channel refuses and logs it without letting a peer flood the log: at most one line
/// in ten seconds, which says how many were refused since the line before. Any thread.
class RefusalCounter {
public:
    /// `channelName` is put in front of each line; `component` is the log component.
    RefusalCounter(const char* component, std::string channelName);

    /// Counts one refusal, and logs `why` at level 3 when a line is due.
    void refuse(const std::string& why);

    unsigned long count() const;

private:
    const char* const m_component;
    const std::string m_channelName;

    // Guarded by m_mutex.
    mutable std::mutex m_mutex;
    unsigned long m_count = 0;
    unsigned long m_logged = 0;
    std::chrono::steady_clock::time_point m_nextLine{};
};

} // namespace mirel
