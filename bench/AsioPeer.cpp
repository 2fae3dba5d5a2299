#include "bench/Peer.h"
#include "bench/Peers.h"

#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>

#include <unordered_map>

namespace bench {

namespace {

class AsioPeer : public Peer {
public:
    AsioPeer(std::unique_ptr<CommsChannelIfc> channel, Workload& workload, int threads)
        : Peer(std::move(channel), workload),
          m_pool(static_cast<std::size_t>(threads)) {
        startReading();
    }

    ~AsioPeer() override {
        stopReading();
        m_pool.join();
    }

private:
    using Strand = boost::asio::strand<boost::asio::thread_pool::executor_type>;

    void post(const std::string& source, Request request) override {
        const auto found = m_strands.try_emplace(source, m_pool.get_executor()).first;
        boost::asio::post(found->second,
                          [request = std::move(request)]() mutable { request.run(); });
    }

    boost::asio::thread_pool m_pool;
    std::unordered_map<std::string, Strand> m_strands; ///< the reading thread's
};

} // namespace

std::unique_ptr<Contestant> startAsio(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
                                      int threads) {
    return std::make_unique<AsioPeer>(std::move(channel), workload, threads);
}

} // namespace bench
