#include "bench/Contestant.h"

#include "bench/MirelContestant.h"
#include "bench/Workload.h"
#include "framework/Invoker.h"
#include "framework/InvokerResponse.h"

#include <stdexcept>
#include <thread>

namespace bench {

namespace {

class PeerContestant {
public:
    PeerContestant(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
                   std::unique_ptr<Peer> peer)
        : m_channel(std::move(channel)),
          m_workload(workload),
          m_peer(std::move(peer)),
          m_reader([this] { read(); }) {}

    ~PeerContestant() {
        m_channel->close();
        m_reader.join();
    }

private:
    void read() {
        mirel::ServiceContext& context = m_workload.context();
        for (;;) {
            CommsChannelDataContainerMessage msg;
            if (!m_channel->readMessage(msg))
                return;
            Invoker* const invoker = context.findInvoker(msg.interface(), msg.protocol());
            invoker->initialise(&context);
            auto* const response = new InvokerResponse(
                m_channel.get(), msg.sourceChannel(), msg.callbackChannel(), msg.protocol(),
                msg.interface(), msg.requestId(), msg.proxyCallMode(), msg.remoteContext(), 0);
            m_peer->post(msg.sourceChannel(),
                         {invoker, &m_workload.service(), msg.getData(), response});
        }
    }

    const std::unique_ptr<CommsChannelIfc> m_channel;
    Workload& m_workload;
    const std::unique_ptr<Peer> m_peer; ///< ends before the channel that it answers to
    std::thread m_reader;
};

} // namespace

void Request::run() {
    try {
        invoker->handleMessage(service, data.data(), static_cast<int>(data.size()), response);
    } catch (const std::runtime_error&) { // what the workload throws
        delete response;                  // answered already
    }
}

Contestant startPeer(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
                     std::unique_ptr<Peer> peer) {
    return std::make_shared<PeerContestant>(std::move(channel), workload, std::move(peer));
}

Contestant Kind::start(std::unique_ptr<CommsChannelIfc> channel, Workload& workload,
                       int sources) const {
    const int cores = static_cast<int>(std::thread::hardware_concurrency());
    const int counts[] = {sources, cores, kWorkersKept, 0}; // as `Threads` has them
    if (makePeer)
        return startPeer(std::move(channel), workload, makePeer(counts[threads]));
    auto library = std::make_shared<MirelContestant>(counts[threads]);
    library->serve(std::move(channel), workload, threads != eReaderOnly);
    return library;
}

const std::vector<Kind>& contestants() {
    static const std::vector<Kind> all{
        {"mirel", Kind::eOnePerSource},
        {"asio", Kind::eOnePerSource, &makeAsioPeer},
        {"tbb", Kind::eOnePerSource, &makeTbbPeer},
        {"caf", Kind::eOnePerSource, &makeCafPeer},
        {"threads", Kind::eOnePerSource, &makeThreadPerSourcePeer},
        {"asio_cores", Kind::eOnePerCore, &makeAsioPeer},
        {"tbb_cores", Kind::eOnePerCore, &makeTbbPeer},
        {"caf_cores", Kind::eOnePerCore, &makeCafPeer},
        {"threads_cores", Kind::eOnePerCore, &makeThreadPerSourcePeer},
    };
    return all;
}

} // namespace bench
