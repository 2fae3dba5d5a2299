#include "channels/Shares.h"

#include <algorithm>
#include <utility>

namespace mirel {

namespace {

constexpr std::size_t kManySources = 2000; ///< of a caller and idle, before they are forgotten
constexpr std::size_t kManyCallers = 2000;
constexpr std::size_t kWorkersPerOneLeft = 3;

const char* const kWhenAnswered = "; send it again when some have been answered";

void add(Share& share, std::size_t bytes) {
    ++share.requests;
    share.bytes += bytes;
}

void subtract(Share& share, std::size_t bytes) {
    share.requests -= std::min<std::size_t>(share.requests, 1);
    share.bytes -= std::min(share.bytes, bytes);
}

std::size_t left(std::size_t limit, std::size_t used) { return limit - std::min(limit, used); }

/// Whether one more of `size` fits into a limit of its own, or is the only one.
bool fits(std::size_t used, std::size_t size, std::size_t limit) {
    return used == 0 || used + size <= limit;
}

std::string overShare(const char* whose, std::size_t used, const char* what, const char* option) {
    return std::string(whose) + " has " + std::to_string(used) + ' ' + what +
           ", which is its share (" + option + ")" + kWhenAnswered;
}

std::string overTotal(std::size_t used, const char* what, const char* option) {
    return std::string("the service has too little room left for a caller with ") +
           std::to_string(used) + ' ' + what + " (" + option + ")" + kWhenAnswered;
}

} // namespace

Shares::Shares(const ShareLimits& limits) : m_limits(limits), m_manyCallers(kManyCallers) {}

std::optional<Shares::Refusal> Shares::takeOn(const std::string& callerName,
                                              const std::string& sourceName, std::size_t bytes,
                                              std::optional<std::uint64_t> refusalsKnown) {
    if (m_callers.size() >= m_manyCallers)
        forgetIdleCallers();
    Caller& caller = m_callers[callerName];
    if (caller.sources.size() - caller.busySources >= kManySources)
        forgetIdleSources(caller);
    Source& source =
        caller.sources.try_emplace(sourceName, Source{{}, caller.elsewhere}).first->second;
    std::string why;
    if (refusalsKnown && *refusalsKnown < source.lastRefusal)
        why = "an earlier request of its source was refused; send it again behind that";
    else
        why = whyNot(caller, source, bytes);
    if (refusalsKnown)
        caller.known = *refusalsKnown;
    if (why.empty()) {
        if (source.share.requests == 0) {
            ++caller.busySources;
            ++m_busySources;
        }
        add(source.share, bytes);
        add(caller.share, bytes);
        add(m_total, bytes);
        return std::nullopt;
    }
    Refusal refusal{std::move(why), 0};
    if (refusalsKnown)
        refusal.number = source.lastRefusal = ++caller.refusals;
    else if (source.share.requests == 0)
        caller.sources.erase(sourceName);
    return refusal;
}

std::string Shares::whyNot(const Caller& caller, const Source& source, std::size_t bytes) const {
    const ShareLimits& limits = m_limits;
    if (!fits(source.share.requests, 1, limits.source.requests))
        return overShare("its source", source.share.requests, "unanswered requests",
                         "--source-requests");
    if (!fits(source.share.bytes, bytes, limits.source.bytes))
        return overShare("its source", source.share.bytes, "bytes of unanswered requests",
                         "--source-bytes");
    if (!fits(caller.share.requests, 1, limits.caller.requests))
        return overShare("its caller", caller.share.requests, "unanswered requests",
                         "--caller-requests");
    if (!fits(caller.share.bytes, bytes, limits.caller.bytes))
        return overShare("its caller", caller.share.bytes, "bytes of unanswered requests",
                         "--caller-bytes");
    const std::size_t requestsLeft = left(limits.total.requests, m_total.requests);
    if (requestsLeft == 0 || !fits(caller.share.requests, 1, requestsLeft - 1))
        return overTotal(caller.share.requests, "unanswered requests", "--max-unfinished");
    const std::size_t bytesLeft = left(limits.total.bytes, m_total.bytes);
    if ((m_total.requests > 0 && bytes > bytesLeft) ||
        !fits(caller.share.bytes, bytes, left(bytesLeft, bytes)))
        return overTotal(caller.share.bytes, "bytes of unanswered requests",
                         "--max-unfinished-bytes");
    const std::size_t workersLeft = left(limits.workers, m_busySources);
    if (limits.workers > 0 && source.share.requests == 0 &&
        (workersLeft == 0 || !fits(caller.busySources, 1, kWorkersPerOneLeft * (workersLeft - 1))))
        return overTotal(caller.busySources, "sources that need a worker each", "--max-workers");
    return {};
}

void Shares::release(const std::string& callerName, const std::string& sourceName,
                     std::size_t bytes) {
    const auto caller = m_callers.find(callerName);
    if (caller == m_callers.end())
        return;
    const auto source = caller->second.sources.find(sourceName);
    if (source == caller->second.sources.end() || source->second.share.requests == 0)
        return;
    subtract(source->second.share, bytes);
    subtract(caller->second.share, bytes);
    subtract(m_total, bytes);
    if (source->second.share.requests > 0)
        return;
    --caller->second.busySources;
    --m_busySources;
    // Otherwise what was sent behind the refused one may still be on its way.
    if (source->second.lastRefusal <= caller->second.known)
        caller->second.sources.erase(source);
}

/// Their last refusal then counts for every source that is not known, which may refuse more than it
/// must, and never less.
void Shares::forgetIdleSources(Caller& caller) {
    std::erase_if(caller.sources, [&](const auto& entry) {
        if (entry.second.share.requests > 0)
            return false;
        caller.elsewhere = std::max(caller.elsewhere, entry.second.lastRefusal);
        return true;
    });
}

/// Nobody tells when a caller is gone. Those that may still be sending behind a refused request go
/// last, so that only a crowd of them can make the refusals of one forgotten.
void Shares::forgetIdleCallers() {
    const auto idle = [](const Caller& caller) { return caller.share.requests == 0; };
    std::erase_if(m_callers, [&](const auto& entry) {
        return idle(entry.second) && entry.second.refusals <= entry.second.known;
    });
    if (m_callers.size() >= m_manyCallers)
        std::erase_if(m_callers, [&](const auto& entry) { return idle(entry.second); });
    m_manyCallers = std::max(kManyCallers, 2 * m_callers.size());
}

} // namespace mirel
