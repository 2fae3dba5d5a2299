#pragma once

#include "ServiceExecutor.h"
#include "ServiceThreadPool.h"
#include "runtime/values/ServiceContext.h"
#include "simulated/SimulatedChannel.h"

#include <memory>
#include <string>
#include <vector>

namespace mirel::simulated {

/// One service in a simulated run, hosted by the real executor and pool. To be used by the run's
/// body, which makes it and the service anew in each run.
class SimulatedHost {
public:
    /// Starts an executor for `service`, which must live until `finish`. Handlers are registered in
    /// `context()` before the first message is sent.
    SimulatedHost(Executable& service, const std::string& interface, bool multiThreaded = true,
                  int maxPoolSize = 4);

    /// As `finish`.
    ~SimulatedHost();

    ServiceContext& context() { return m_context; }

    /// Sends a request for the interface, with protocol "text". Requests of one source are run in
    /// the order in which they are sent. Returns the request's id, counted from 1.
    long send(const std::string& source, const std::string& data, int priority = 1);

    /// Sends a timer event.
    void sendTimer(int timerId, int priority = 1);

    /// Waits until all messages have been read and all requests answered, and stops the executor
    /// and the pool. The answers are in the order in which they were given. A service that does not
    /// answer ends the run as failed, by a deadlock.
    std::vector<Answer> finish();

private:
    const std::string m_interface;
    const std::shared_ptr<Traffic> m_traffic = std::make_shared<Traffic>();
    ServiceContext m_context;
    ServiceThreadPool m_pool;
    std::unique_ptr<ServiceExecutor> m_executor;
    long m_sent = 0;
};

} // namespace mirel::simulated
