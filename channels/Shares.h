#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

namespace mirel {

/// Unanswered requests: how many, and the bytes that their callers sent for them.
struct Share {
    std::size_t requests = 0;
    std::size_t bytes = 0;
};

/// What one caller can rely on.
struct CallerShare {
    Share all;
    Share source;
    std::size_t sources = 0;
    std::size_t answerBytes = 0; ///< that it has not taken
};

/// How much of a channel's requests may be unanswered. A source's share is that of one caller: who
/// uses another one's source name takes nothing away from it.
struct ShareLimits {
    Share total{10000, std::size_t{64} << 20};
    Share caller{2000, std::size_t{32} << 20};
    Share source{1000, std::size_t{16} << 20};

    /// Workers that there are for the sources with unanswered requests, of which each needs one at
    /// a time; 0: they need none.
    std::size_t workers = 0;
};

/// Keeps book of the unanswered requests of a channel, and says which one is too many. Used by one
/// thread.
///
/// A caller may have as much as its own limit, and as what is left of the total; of the workers,
/// three times as many as are left. So n greedy callers leave one part of n + 1 to all others (of
/// the workers, one of 3n + 1), without anybody having to know how many callers there are (dynamic
/// thresholds: A. K. Choudhury and E. L. Hahne, IEEE/ACM Transactions on Networking 6, 1998). A
/// caller or source with nothing unanswered may have one request, as large as it is, while the
/// total has room.
///
/// Refusals keep the order of a source. Those of a caller are numbered; its messages tell the
/// number of the last one that it knew when it sent them. A request that was sent before its caller
/// knew of the last refusal in its source is refused, too. So what is sent again comes before
/// everything that was sent behind it. A caller that tells no numbers has to see to that itself.
class Shares {
public:
    explicit Shares(const ShareLimits& limits);

    struct Refusal {
        std::string why;          ///< with what to do
        std::uint64_t number = 0; ///< of the caller's refusals, from 1; 0: it tells none itself
    };

    /// Takes the request on, until `release`; or says why not.
    std::optional<Refusal> takeOn(const std::string& caller, const std::string& source,
                                  std::size_t bytes, std::optional<std::uint64_t> refusalsKnown);

    /// One that was taken on has been answered.
    void release(const std::string& caller, const std::string& source, std::size_t bytes);

    /// Callers that something is known about.
    std::size_t callers() const { return m_callers.size(); }

private:
    struct Source {
        Share share;
        std::uint64_t lastRefusal = 0; ///< its number
    };

    struct Caller {
        Share share;
        std::size_t busySources = 0;
        std::uint64_t refusals = 0;
        std::uint64_t known = 0;     ///< of these, by its last message
        std::uint64_t elsewhere = 0; ///< last refusal of sources that are not in `sources`
        std::unordered_map<std::string, Source> sources; ///< unanswered or refused not long ago
    };

    std::string whyNot(const Caller& caller, const Source& source, std::size_t bytes) const;
    void forgetIdleCallers();
    static void forgetIdleSources(Caller& caller);

    const ShareLimits m_limits;
    Share m_total;
    std::size_t m_busySources = 0;
    std::unordered_map<std::string, Caller> m_callers;
    std::size_t m_manyCallers;
};

} // namespace mirel
