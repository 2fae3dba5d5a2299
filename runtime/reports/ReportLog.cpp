#include "runtime/reports/ReportLog.h"

#include "framework/Logging.h"
#include "framework/MirelException.h"
#include "runtime/reports/Reports.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace mirel {

namespace {

constexpr const char* kComponent = "ExceptionPublisher";
constexpr unsigned kFirst = 5;
constexpr unsigned kLater = 1;
constexpr std::chrono::seconds kWindow{10};
constexpr std::size_t kMostKinds = 200;
constexpr const char* kOtherKinds = "failures of other kinds";
constexpr std::size_t kLongestName = 200;
constexpr std::size_t kLongestText = 8192;

std::string cut(std::string text, std::size_t most) {
    if (text.size() > most) {
        const std::size_t more = text.size() - most;
        text.resize(most);
        text += "[" + std::to_string(more) + " bytes more]";
    }
    return text;
}

/// The first line without its numbers, the place, and who was used.
std::string nameOf(const MirelException& report) {
    const std::string text = report.message();
    const std::string_view whole(text);
    std::string name;
    for (const char c : whole.substr(0, std::min(whole.find('\n'), kLongestName)))
        if (c < '0' || c > '9')
            name += c;
        else if (!name.ends_with('#'))
            name += '#';
    name += " (" + report.file() + ":" + std::to_string(report.line()) + ")";
    const std::size_t used = whole.find("\n Invoker used: ");
    if (used != std::string_view::npos)
        name +=
            whole.substr(used, std::min(whole.find(kRequestData, used) - used, 2 * kLongestName));
    return name;
}

void logLine(const std::string& text, const std::string& file, int line) {
    logAppUni(kComponent, file.c_str(), 2, line, "%s", text.c_str());
}

} // namespace

ReportLog::ReportLog(std::size_t dataBytes) : m_dataBytes(dataBytes) {}

ReportLog::~ReportLog() {
    const Lock lock(m_mutex);
    for (const auto& [name, kind] : m_kinds)
        if (kind.counted > 0)
            logLine(std::to_string(kind.counted) + " more of this kind: " + name, __FILE__,
                    __LINE__);
}

void ReportLog::write(const MirelException& report, Clock::time_point now) {
    bool isWritten = false;
    std::vector<std::string> counts;
    {
        const Lock lock(m_mutex);
        if (now >= m_nextCount) {
            m_nextCount = now + kWindow;
            for (auto& [name, kind] : m_kinds)
                if (const unsigned long count = std::exchange(kind.counted, 0))
                    counts.push_back(std::to_string(count) + " more of this kind: " + name);
        }
        Kind& kind = kindOf(nameOf(report), now);
        isWritten = kind.written < (kind.isNew ? kFirst : kLater);
        ++(isWritten ? kind.written : kind.counted);
    }
    // Without the lock: a log sink may be slow.
    for (const std::string& count : counts)
        logLine(count, __FILE__, __LINE__);
    if (isWritten)
        logLine(cut(describe(report, m_dataBytes), kLongestText), report.file(), report.line());
}

ReportLog::Kind& ReportLog::kindOf(std::string name, Clock::time_point now) {
    if (m_kinds.size() >= kMostKinds && !m_kinds.contains(name)) {
        forgetIdle(m_kinds, now);
        if (m_kinds.size() >= kMostKinds)
            name = kOtherKinds;
    }
    const auto [entry, isNew] = m_kinds.try_emplace(std::move(name));
    Kind& kind = entry->second;
    if (isNew) {
        kind.begin = now;
    } else if (now >= kind.begin + kWindow) {
        kind.begin = now;
        kind.written = 0;
        kind.isNew = false;
    }
    return kind;
}

void ReportLog::forgetIdle(Kinds& kinds, Clock::time_point now) {
    std::erase_if(kinds, [now](const auto& entry) {
        return entry.second.counted == 0 && now >= entry.second.begin + kWindow;
    });
}

} // namespace mirel
