#include "channels/open/AllTransports.h"

#include "channels/nats/NatsTransport.h"
#include "channels/zmq/ZmqTransport.h"

#include <type_traits>

namespace mirel {

namespace {

// The build says of each whether it is there.
using Zmq = std::conditional_t<MIREL_ZEROMQ, ZmqTransport, ZmqDeclaration>;
using Nats = std::conditional_t<MIREL_NATS, NatsTransport, NatsDeclaration>;

} // namespace

Transports allTransports() {
    Transports all;
    all.add(std::make_unique<Zmq>());
    all.add(std::make_unique<Nats>());
    return all;
}

} // namespace mirel
