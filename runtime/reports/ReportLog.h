#pragma once

#include "runtime/threads/Mutex.h"

#include <chrono>
#include <cstddef>
#include <map>
#include <string>

class MirelException;

namespace mirel {

/// Writes failure reports to the log, at level 2, and does not let those that repeat fill it. Of
/// each kind the first five are written, and then one in ten seconds; the others are counted, and
/// their number is written every ten seconds while reports come.
///
/// Reports are of one kind when they come from the same place, invoker and service, and their first
/// lines differ in digits only. At most 200 kinds are told apart at a time. Any thread.
class ReportLog {
public:
    using Clock = std::chrono::steady_clock;

    /// Of each request's data `dataBytes` bytes are written. What an exception's own text tells of
    /// them is the service's affair.
    explicit ReportLog(std::size_t dataBytes);

    /// Tells the numbers that have not been told.
    ~ReportLog();

    ReportLog(const ReportLog&) = delete;
    ReportLog& operator=(const ReportLog&) = delete;

    void write(const MirelException& report, Clock::time_point now = Clock::now());

private:
    struct Kind {
        unsigned long written = 0; ///< since `begin`
        unsigned long counted = 0;
        Clock::time_point begin;
        bool isNew = true;
    };
    using Kinds = std::map<std::string, Kind>;

    Kind& kindOf(std::string name, Clock::time_point now) MIREL_REQUIRES(m_mutex);
    static void forgetIdle(Kinds& kinds, Clock::time_point now);

    const std::size_t m_dataBytes;

    Mutex m_mutex;
    Kinds m_kinds MIREL_GUARDED_BY(m_mutex);
    Clock::time_point m_nextCount MIREL_GUARDED_BY(m_mutex){};
};

} // namespace mirel
