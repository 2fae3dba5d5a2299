#pragma once

#include "runtime/values/Answer.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>

namespace mirel {

/// Gives a caller its answers in the order of each source's requests, and each once (a source: what
/// it sends under one source channel). An answer that
/// was lost on its way is repeated by the host, and meanwhile those behind it have come; they wait
/// for it, but not for ever, because its host may have died. Used by one thread.
class NatsAnswerOrder {
public:
    using Time = std::chrono::steady_clock::time_point;

    void sent(const std::string& source, long requestId);

    /// An answer has come, perhaps once more. False when nothing was sent that it could answer.
    [[nodiscard]] bool came(Answer answer, Time now);

    /// The next answer that need not wait.
    std::optional<Answer> next(Time now);

    /// When `next` may give one although none has come; nothing when none waits.
    std::optional<Time> nextChange() const;

private:
    struct Waiting {
        Answer answer;
        Time until;
    };
    struct Source {
        std::deque<long> unanswered; ///< requests in the order in which they were sent
        std::map<long, Waiting> waiting;
    };

    void release(Source& source);

    /// Smallest and largest number that was sent. Between them an answer that nobody waits for is
    /// taken for one that has come before: not all of those are kept.
    long m_first = 0;
    long m_last = -1;

    std::unordered_map<std::string, Source> m_sources; ///< those with unanswered requests
    std::size_t m_waiting = 0;                         ///< answers in all of them
    std::deque<Answer> m_ready;
};

} // namespace mirel
