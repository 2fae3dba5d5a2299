#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <zmq.hpp>

namespace mirel {

struct Answer;

/// Keeps book of the bytes of answers that ZeroMQ has and their callers have not taken. Used by one
/// thread; ZeroMQ's threads give back.
///
/// A caller may have as much as its limit, and as what is left of the total (see Shares.h).
class ZmqUntaken {
public:
    ZmqUntaken(std::size_t perCaller, std::size_t total);

    /// The answer to its callback channel as a message that counts until ZeroMQ has passed it to
    /// the system or dropped it. Nothing when there is no room for it; then it is not encoded
    /// either, so that answers that pile up are soon gone.
    std::optional<zmq::message_t> message(const Answer& answer);

private:
    using Bytes = std::atomic<std::size_t>;
    struct Lent;

    static void giveBack(void* data, void* lent);
    void forgetIdleCallers();

    const std::size_t m_perCaller;
    const std::size_t m_limit;

    // Shared with the messages, which may outlive this object. Grow in this object's thread only,
    // so that what it reads may be too much by now, and never too little; no other data depend on
    // them.
    const std::shared_ptr<Bytes> m_total;
    std::unordered_map<std::string, std::shared_ptr<Bytes>> m_callers;
    std::size_t m_manyCallers;
};

} // namespace mirel
