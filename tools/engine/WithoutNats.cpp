#include "engine/Engine.h"

#include "channels/Caller.h"
#include "channels/ServiceChannel.h"
#include "framework/MirelException.h"

namespace mirel {

namespace {

[[noreturn]] void fail(const std::string& url) {
    throw MirelException(url + ": this program was built without NATS (MIREL_NATS)", __FILE__,
                         __LINE__);
}

} // namespace

std::unique_ptr<ServiceChannel> openNatsChannel(const NatsChannelOptions& options) {
    fail(options.connection.url);
}

std::unique_ptr<Caller> newNatsCaller(const NatsCallerOptions& options) {
    fail(options.connection.url);
}

} // namespace mirel
