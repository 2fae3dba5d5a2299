#include "bench/Load.h"

namespace bench {

class LoadChannel : public mirel::AnsweringChannel {
public:
    explicit LoadChannel(Load& load) : m_load(load) {}

    bool readMessage(CommsChannelDataContainerMessage& msg) override {
        m_load.beforeRead(m_read);
        while (m_read == m_load.m_released && !m_load.m_closed)
            m_load.m_reader.sleep();
        if (m_load.m_closed)
            return false;
        m_load.read(m_read++, msg);
        return true;
    }

    void close() override {
        m_load.m_closed = true;
        m_load.m_reader.wake();
    }

    std::shared_ptr<mirel::AnswerSink> answerSink() override {
        return {std::shared_ptr<void>(), &m_load};
    }

private:
    Load& m_load;
    std::size_t m_read = 0;
};

std::unique_ptr<CommsChannelIfc> Load::channel() { return std::make_unique<LoadChannel>(*this); }

void Load::run(std::size_t count) {
    m_released += count;
    m_reader.wake();
    m_caller.sleep();
}

void Load::answer(mirel::Answer) {
    if (++m_answered == m_released)
        m_caller.wake();
}

} // namespace bench
