#pragma once

#include "testkit/NatsCluster.h"
#include "testkit/Process.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace mirel {

/// Shows that a service goes on when a server of its NATS cluster is killed, and then one of its
/// two hosts. Everything throws `std::exception` when something does not come out as it should.
class NatsDemo {
public:
    /// Everything is kept in `folder`. What was there before is removed.
    explicit NatsDemo(const std::string& folder);

    void run();

private:
    struct Host {
        std::string name;
        std::unique_ptr<Process> process;
        double killed = 0; ///< when, in seconds since 1970; 0: not yet
        std::string log{}; ///< when it has ended
    };

    void startHost(const std::string& name);
    void stopHosts();

    /// mirel-call's.
    Arguments call(const Arguments& more) const;
    Arguments load(const std::string& source, long requests, const Arguments& more = {}) const;

    /// So many requests of each source that the load lasts long enough on this machine. Returns how
    /// many are answered in a second.
    long chooseSize();
    void runLoad();
    void killServer();
    void killHost();
    void restartServer();
    double mark(const std::string& text);

    /// The longest time without any answer.
    double pause() const;

    /// What ran, by the accounts' files; returns how many postings ran once more.
    long checkFiles() const;

    /// What the service says itself; returns every account's balance.
    long checkBalances() const;

    /// Writes down what picture.py draws.
    void writeRun() const;

    const std::string m_folder;
    NatsCluster m_cluster;
    std::vector<Host> m_hosts;
    NatsServer* m_killed = nullptr;
    long m_ofEach = 0; ///< requests of each source

    double m_start = 0;                                  ///< of the load
    std::vector<std::pair<double, long>> m_answers;      ///< seconds since the start, answers
    std::vector<std::pair<double, std::string>> m_marks; ///< what was done when
};

} // namespace mirel
