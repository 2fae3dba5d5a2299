#pragma once

#include "testkit/Process.h"
#include "testkit/TemporaryFolder.h"
#include "testkit/waitForLines.h"
#include "tests/system/Support.h"
#include "tests/system/nats/History.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace mirel {

/// A service that writes down what it runs, hosted by mirel-host and called by mirel-call.
class HostsFixture : public testing::Test {
protected:
    HostsFixture() { setenv("MIREL_HISTORY", m_history.c_str(), 1); }

    /// A host that is connected; it need not have any partition.
    std::unique_ptr<Process> newHost(const std::string& url, const Arguments& more = {}) const {
        auto host = std::make_unique<Process>(
            joined({MIREL_HOST, "--library", RECORDING_LIBRARY, "--creator", "makeRecordingService",
                    "--interface", "Recording", "--channel", url, "--lease", "1000", "--patience",
                    "60000"},
                   more));
        EXPECT_TRUE(host->waitFor("serving")) << host->finish().errors;
        return host;
    }

    std::unique_ptr<Process> newCall(const std::string& url, const Arguments& more,
                                     const std::string& input = "") const {
        Arguments arguments{MIREL_CALL, "--channel", url};
        if (std::find(more.begin(), more.end(), "--deadline") == more.end())
            arguments.insert(arguments.end(), {"--deadline", "60000"});
        if (input.empty())
            arguments.insert(arguments.end(), {"--interface", "Recording", "--protocol", "run"});
        return std::make_unique<Process>(joined(arguments, more), input);
    }

    /// A load whose requests take a while; `what` is the end of their data.
    std::unique_ptr<Process> newLoad(const std::string& url, unsigned sources, long ofEach,
                                     const std::string& what = "work 200") const {
        return newCall(url, {"--load", std::to_string(sources * ofEach), "--sources",
                             std::to_string(sources), "--source", "source", "--data",
                             "{source} {n} " + what});
    }

    History history() const { return History(m_history); }

    /// Waits until the service has run `more` requests from now on; false after a minute without
    /// any.
    bool waitForProgress(unsigned long more) const { return waitFor(history().count() + more); }

    /// Waits until the service has run so many requests in all.
    bool waitFor(unsigned long requests) const { return waitForLines(m_history, requests); }

    /// Every request was run, each source's in its order.
    void expectAll(unsigned sources, long ofEach, unsigned long mayRepeat) const {
        const History result = history();
        EXPECT_EQ(result.lost("source", sources, ofEach), 0U);
        EXPECT_EQ(result.outOfOrder(), 0U);
        EXPECT_LE(result.repeated(), mayRepeat);
    }

    static void expectGood(const Process::Result& result) {
        EXPECT_EQ(result.status, 0) << result.output << result.errors;
    }

    const TemporaryFolder m_folder;
    const std::string m_history = m_folder.path("history");
};

} // namespace mirel
