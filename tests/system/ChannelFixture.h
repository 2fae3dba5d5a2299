#pragma once

#include "framework/CommsChannelDataContainerMessage.h"
#include "standalone/Answer.h"
#include "standalone/AnswerSink.h"
#include "standalone/ZmqCaller.h"
#include "standalone/ZmqChannel.h"
#include "standalone/ZmqCounters.h"
#include "tests/system/TemporaryFolder.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace mirel {

constexpr std::chrono::milliseconds kPatience{20000}; ///< for what must happen

/// A channel with the test as its service.
class ChannelFixture : public testing::Test {
protected:
    ChannelFixture() { m_options.url = "ipc://" + m_folder.path("service"); }

    /// To be called first by every test, after it has changed `m_options`.
    void open() { m_channel = std::make_unique<ZmqChannel>(m_options); }

    std::unique_ptr<ZmqCaller> newCaller();

    static CommsChannelDataContainerMessage request(long id, const std::string& data = "data");

    /// The next message that the service reads.
    CommsChannelDataContainerMessage read();

    /// Answers a message that was read.
    void answer(CommsChannelDataContainerMessage& msg, const std::string& data);

    /// One request to and fro.
    void expectService(ZmqCaller& caller, long id);

    const TemporaryFolder m_folder;
    ZmqChannelOptions m_options;
    std::unique_ptr<ZmqChannel> m_channel;
};

} // namespace mirel
