#include "bench/BatchChannel.h"

namespace bench {

class BatchChannel : public mirel::AnsweringChannel {
public:
    explicit BatchChannel(Batches& batches) : m_batches(batches) {}

    bool readMessage(CommsChannelDataContainerMessage& msg) override {
        if (!m_batches.m_release.waitFor(m_read))
            return false;
        msg = m_batches.m_requests[m_read % m_batches.m_requests.size()];
        ++m_read;
        return true;
    }

    void close() override { m_batches.m_release.close(); }

    std::shared_ptr<mirel::AnswerSink> answerSink() override {
        return {std::shared_ptr<void>(), &m_batches};
    }

private:
    Batches& m_batches;
    std::size_t m_read = 0;
};

std::unique_ptr<mirel::AnsweringChannel> Batches::channel() {
    return std::make_unique<BatchChannel>(*this);
}

void Batches::run() {
    m_done = false;
    m_release.add(m_requests.size());
    m_done.wait(false);
}

void Batches::answer(mirel::Answer) {
    if (++m_answered < m_requests.size())
        return;
    m_answered = 0; // nobody answers until the next run
    m_done = true;
    m_done.notify_all();
}

} // namespace bench
