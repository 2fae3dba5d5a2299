#include "channels/RefusalCounter.h"

#include "framework/Logging.h"

#include <utility>

namespace mirel {

namespace {

constexpr int kLevel = 3;
constexpr std::chrono::seconds kBetweenLines{10};

} // namespace

RefusalCounter::RefusalCounter(const char* component, std::string channelName)
    : m_component(component),
      m_channelName(std::move(channelName)) {}

void RefusalCounter::refuse(const std::string& why) {
    unsigned long sinceLastLine = 0;
    {
        const Lock lock(m_mutex);
        ++m_count;
        const auto now = std::chrono::steady_clock::now();
        if (now < m_nextLine)
            return;
        m_nextLine = now + kBetweenLines;
        sinceLastLine = m_count - std::exchange(m_logged, m_count);
    }
    // Logged without the lock: a log sink may be slow, or ask for the count.
    if (loggingOnAppUni(m_component, kLevel))
        logAppUni(m_component, __FILE__, kLevel, __LINE__,
                  "%s: %lu refused, the last one because %s", m_channelName.c_str(), sinceLastLine,
                  why.c_str());
}

unsigned long RefusalCounter::count() const {
    const Lock lock(m_mutex);
    return m_count;
}

} // namespace mirel
