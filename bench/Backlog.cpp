#include "bench/Backlog.h"

#include "framework/CommsChannelIfc.h"

#include <malloc.h>
#include <memory>
#include <string_view>

namespace bench {

namespace {

constexpr const char* kProtocol = "backlog";

std::size_t bytesInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd; // the latter are the large blocks
}

} // namespace

class BacklogChannel : public mirel::AnsweringChannel {
public:
    explicit BacklogChannel(Backlog& backlog) : m_backlog(backlog) {}

    /// Who comes for a message has dispatched all before it.
    bool readMessage(CommsChannelDataContainerMessage& msg) override {
        const std::size_t readInRun = m_read % (1 + m_backlog.m_length);
        if (readInRun == 1)
            m_backlog.firstDispatched();
        else if (readInRun == 0 && m_read > 0)
            m_backlog.allHeldBack();
        if (!m_backlog.m_release.waitFor(m_read))
            return false;
        msg = m_backlog.m_request;
        ++m_read;
        return true;
    }

    void close() override { m_backlog.m_release.close(); }

    std::shared_ptr<mirel::AnswerSink> answerSink() override {
        return {std::shared_ptr<void>(), &m_backlog};
    }

private:
    Backlog& m_backlog;
    std::size_t m_read = 0;
};

Backlog::Backlog(std::size_t length)
    : m_length(length),
      m_workload(HandlerCost{}),
      m_request(Workload::requests(1, 1).front()) {
    m_request.protocol() = kProtocol;
    m_workload.context().addHandler<Executable>(Workload::kInterface, kProtocol,
                                                [this](Executable&, std::string_view) {
                                                    handle();
                                                    return "";
                                                });
    m_pool.serve(std::make_unique<BacklogChannel>(*this), m_workload);
}

Backlog::Cost Backlog::run() {
    m_blocked = false;
    m_open = false;
    m_done = false;
    m_handled = 0;
    m_answered = 0;
    m_release.add(1 + m_length);
    m_done.wait(false);
    return {m_allHeldBackAt - m_firstDispatchedAt, m_lastBeganAt - m_openedAt,
            m_bytesAfter - m_bytesBefore};
}

void Backlog::firstDispatched() {
    m_blocked.wait(false);
    m_bytesBefore = bytesInUse();
    m_firstDispatchedAt = Clock::now();
}

void Backlog::allHeldBack() {
    m_allHeldBackAt = Clock::now();
    m_bytesAfter = bytesInUse();
    m_open = true;
    m_open.notify_all();
}

void Backlog::handle() {
    if (m_handled == 0) {
        m_blocked = true;
        m_blocked.notify_all();
        m_open.wait(false);
        m_openedAt = Clock::now();
    } else if (m_handled == m_length) {
        m_lastBeganAt = Clock::now();
    }
    ++m_handled;
}

void Backlog::answer(mirel::Answer) {
    if (++m_answered < 1 + m_length)
        return;
    m_done = true;
    m_done.notify_all();
}

} // namespace bench
