#include "bench/Contestant.h"

#include <oneapi/tbb/flow_graph.h>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/task_arena.h>

#include <optional>
#include <unordered_map>

namespace bench {

namespace flow = oneapi::tbb::flow;

class TbbPeer : public Peer {
public:
    explicit TbbPeer(int threads)
        // The limit counts the thread that asks for it, which does not work in the arena.
        : m_limit(oneapi::tbb::global_control::max_allowed_parallelism,
                  static_cast<std::size_t>(threads) + 1),
          m_arena(threads, 0) {
        m_arena.execute([this] { m_graph.emplace(); });
    }
    ~TbbPeer() override { m_graph->wait_for_all(); }

    void post(const std::string& source, Request request) override {
        const auto run = [](Request posted) {
            posted.run();
            return flow::continue_msg();
        };
        m_nodes.try_emplace(source, *m_graph, flow::serial, run).first->second.try_put(request);
    }

private:
    oneapi::tbb::global_control m_limit;
    oneapi::tbb::task_arena m_arena;
    std::optional<flow::graph> m_graph; ///< runs in m_arena, where it was made
    std::unordered_map<std::string, flow::function_node<Request>> m_nodes;
};

std::unique_ptr<Peer> makeTbbPeer(int threads) { return std::make_unique<TbbPeer>(threads); }

} // namespace bench
