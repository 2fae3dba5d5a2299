#include "bench/Contestant.h"

#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>

#include <unordered_map>

namespace bench {

class AsioPeer : public Peer {
public:
    explicit AsioPeer(int threads) : m_pool(static_cast<std::size_t>(threads)) {}
    ~AsioPeer() override { m_pool.join(); }

    void post(const std::string& source, Request request) override {
        const auto found = m_strands.try_emplace(source, m_pool.get_executor()).first;
        boost::asio::post(found->second,
                          [request = std::move(request)]() mutable { request.run(); });
    }

private:
    using Strand = boost::asio::strand<boost::asio::thread_pool::executor_type>;

    boost::asio::thread_pool m_pool;
    std::unordered_map<std::string, Strand> m_strands;
};

std::unique_ptr<Peer> makeAsioPeer(int threads) { return std::make_unique<AsioPeer>(threads); }

} // namespace bench
