#include "bench/Peer.h"
#include "bench/Peers.h"

#include <oneapi/tbb/flow_graph.h>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/task_arena.h>

#include <optional>
#include <unordered_map>

namespace bench {

namespace {

namespace flow = oneapi::tbb::flow;

class TbbPeer : public Peer {
public:
    TbbPeer(std::unique_ptr<CommsChannelIfc> channel, Workload& workload, int threads)
        : Peer(std::move(channel), workload),
          // The limit counts the thread that asks for it, which does not work in the arena.
          m_limit(oneapi::tbb::global_control::max_allowed_parallelism,
                  static_cast<std::size_t>(threads) + 1),
          m_arena(threads, 0) {
        m_arena.execute([this] { m_graph.emplace(); });
        startReading();
    }

    ~TbbPeer() override {
        stopReading();
        m_graph->wait_for_all();
    }

private:
    using Node = flow::function_node<Request>;

    void post(const std::string& source, Request request) override {
        const auto found = m_nodes
                               .try_emplace(source, *m_graph, flow::serial,
                                            [](Request posted) {
                                                posted.run();
                                                return flow::continue_msg();
                                            })
                               .first;
        found->second.try_put(request);
    }

    oneapi::tbb::global_control m_limit;
    oneapi::tbb::task_arena m_arena;
    std::optional<flow::graph> m_graph;            ///< runs in m_arena, where it was made
    std::unordered_map<std::string, Node> m_nodes; ///< the reading thread's
};

} // namespace

std::unique_ptr<Contestant> startTbb(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
                                     int threads) {
    return std::make_unique<TbbPeer>(std::move(channel), workload, threads);
}

} // namespace bench
