#include "channels/nats/publish/NatsSendWindow.h"

#include <algorithm>
#include <utility>

namespace mirel {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kConfirmation{2000}; ///< after which a message is sent once more

// The same when it was refused.
constexpr milliseconds kFirstPause{10};
constexpr milliseconds kLongestPause{500};

} // namespace

NatsSendWindow::NatsSendWindow(std::size_t most, std::string inbox)
    : m_most(most),
      m_inbox(std::move(inbox)) {}

std::optional<NatsSendWindow::Transmission> NatsSendWindow::add(Message message, Time now) {
    ++m_unconfirmed;
    Source& source = m_sources[message.source];
    source.messages.push_back(std::make_shared<const Message>(std::move(message)));
    if (source.messages.size() > 1)
        return std::nullopt;
    return first(source, now);
}

/// The first message of the source is sent for the first time.
NatsSendWindow::Transmission NatsSendWindow::first(Source& source, Time now) {
    source.replyTo = m_inbox + std::to_string(++m_lastReplyTo);
    source.overdueAt = now + kConfirmation;
    source.pause = kFirstPause;
    m_awaitedBy[source.replyTo] = source.messages.front()->source;
    return {source.messages.front(), source.replyTo};
}

std::optional<NatsSendWindow::Transmission> NatsSendWindow::confirmed(const std::string& replyTo,
                                                                      Time now) {
    const auto awaited = m_awaitedBy.find(replyTo);
    if (awaited == m_awaitedBy.end())
        return std::nullopt;
    const auto found = m_sources.find(awaited->second);
    m_awaitedBy.erase(awaited);
    --m_unconfirmed;
    Source& source = found->second;
    source.messages.pop_front();
    if (!source.messages.empty())
        return first(source, now);
    m_sources.erase(found);
    return std::nullopt;
}

void NatsSendWindow::refused(const std::string& replyTo, Time now) {
    const auto awaited = m_awaitedBy.find(replyTo);
    if (awaited == m_awaitedBy.end())
        return;
    Source& source = m_sources.at(awaited->second);
    source.overdueAt = now + source.pause;
    source.pause = std::min<Time::duration>(2 * source.pause, kLongestPause);
}

std::vector<NatsSendWindow::Transmission> NatsSendWindow::overdue(Time now) {
    std::vector<Transmission> result;
    for (auto& [name, source] : m_sources)
        if (source.overdueAt <= now) {
            source.overdueAt = now + kConfirmation;
            result.push_back({source.messages.front(), source.replyTo});
        }
    return result;
}

std::vector<NatsSendWindow::Transmission> NatsSendWindow::all(Time now) {
    for (auto& [name, source] : m_sources)
        source.overdueAt = now;
    return overdue(now);
}

} // namespace mirel
