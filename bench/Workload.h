#pragma once

#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/Executable.h"
#include "runtime/values/ServiceContext.h"

#include <string>
#include <utility>
#include <vector>

namespace bench {

/// What a handler does with a request.
struct HandlerCost {
    int microseconds = 0;
    bool blocks = false; ///< sleeps for that time instead of computing
    bool fails = false;  ///< throws at each tenth request; takes no time else

    std::string name() const;
};

/// The service that all contestants run: the same requests, the same handler, the same answer.
class Workload {
public:
    static constexpr const char* kInterface = "Ifc";
    static constexpr const char* kProtocol = "text";

    class Service : public Executable {
        void timerEvent(int) override {}
    };

    /// Without a handler; one is to be set before the first request.
    Workload() = default;

    explicit Workload(HandlerCost cost);

    /// The handler takes a `ServiceType`: `Service`, or `Executable`, which spares it a cast.
    template <typename ServiceType, typename Handler>
    void setHandler(Handler handler) {
        m_context.addHandler<ServiceType>(kInterface, kProtocol, std::move(handler));
    }

    mirel::ServiceContext& context() { return m_context; }
    Executable& service() { return m_service; }

    /// 64 bytes each, from the sources in turn. Each tenth is marked for handlers that fail.
    static std::vector<CommsChannelDataContainerMessage> requests(int count, int sources,
                                                                  const char* protocol = kProtocol);

private:
    Service m_service;
    mirel::ServiceContext m_context;
};

} // namespace bench
