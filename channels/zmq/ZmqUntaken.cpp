#include "channels/zmq/ZmqUntaken.h"

#include "channels/Envelope.h"

#include <algorithm>
#include <utility>

namespace mirel {

namespace {

constexpr std::size_t kManyCallers = 2000;

/// What a message takes beside its bytes: nobody shall fill the memory with empty answers.
constexpr std::size_t kEach = 300;

} // namespace

struct ZmqUntaken::Lent {
    std::string bytes;
    std::shared_ptr<Bytes> total;
    std::shared_ptr<Bytes> ofCaller;
};

ZmqUntaken::ZmqUntaken(std::size_t perCaller, std::size_t total)
    : m_perCaller(perCaller),
      m_limit(total),
      m_total(std::make_shared<Bytes>(0)),
      m_manyCallers(kManyCallers) {}

std::optional<zmq::message_t> ZmqUntaken::message(const Answer& answer) {
    if (m_callers.size() >= m_manyCallers)
        forgetIdleCallers();
    std::shared_ptr<Bytes>& ofCaller = m_callers[answer.callbackChannel];
    if (!ofCaller)
        ofCaller = std::make_shared<Bytes>(0);
    const std::size_t least = answer.data.size() + answer.sourceChannel.size() + kEach;
    const std::size_t total = *m_total + least;
    if (total > m_limit || *ofCaller + least > std::min(m_perCaller, m_limit - total))
        return std::nullopt;
    auto lent = std::make_unique<Lent>(Lent{encode(answer), m_total, ofCaller});
    // The constructor either fails or will give it back.
    zmq::message_t message(lent->bytes.data(), lent->bytes.size(), &giveBack, lent.get());
    const std::size_t size = lent.release()->bytes.size() + kEach;
    *m_total += size;
    *ofCaller += size;
    return message;
}

void ZmqUntaken::giveBack(void*, void* hint) {
    const std::unique_ptr<Lent> lent(static_cast<Lent*>(hint));
    const std::size_t size = lent->bytes.size() + kEach;
    *lent->total -= size;
    *lent->ofCaller -= size;
}

void ZmqUntaken::forgetIdleCallers() {
    std::erase_if(m_callers, [](const auto& entry) { return *entry.second == 0; });
    m_manyCallers = std::max(kManyCallers, 2 * m_callers.size());
}

} // namespace mirel
