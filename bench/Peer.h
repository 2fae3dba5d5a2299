#pragma once

#include "bench/Contestant.h"

#include <memory>
#include <string>
#include <thread>

class Executable;
class Invoker;
class InvokerResponse;

namespace bench {

/// A request that is ready to run. As the library's record of one: destroying it deletes nothing.
struct Request {
    Invoker* invoker = nullptr;
    Executable* service = nullptr;
    std::string data;
    InvokerResponse* response = nullptr;

    void run();
};

/// Does with a message what the library's executor does, up to the point where the request goes to
/// another thread.
class Peer : public Contestant {
protected:
    Peer(std::unique_ptr<CommsChannelIfc> channel, Workload& workload);

    /// Runs the request after those of the same source that were posted before. Called by the
    /// reading thread only.
    virtual void post(const std::string& source, Request request) = 0;

    /// For the constructor of a derived class, as its last step.
    void startReading();

    /// For the destructor of a derived class, as its first step.
    void stopReading();

private:
    void read();

    const std::unique_ptr<CommsChannelIfc> m_channel;
    Workload& m_workload;
    std::thread m_reader;
};

} // namespace bench
