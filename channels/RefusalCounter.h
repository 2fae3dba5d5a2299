#pragma once

#include "runtime/threads/Mutex.h"

#include <chrono>
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

    mutable Mutex m_mutex;
    unsigned long m_count MIREL_GUARDED_BY(m_mutex) = 0;
    unsigned long m_logged MIREL_GUARDED_BY(m_mutex) = 0;
    std::chrono::steady_clock::time_point m_nextLine MIREL_GUARDED_BY(m_mutex){};
};

} // namespace mirel
