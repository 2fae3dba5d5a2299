#pragma once

#include "framework/FrameworkContext.h"
#include "runtime/threads/Mutex.h"
#include "runtime/values/ClaimingInvoker.h"
#include "runtime/values/HandlerInvoker.h"

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class Executable;
class Invoker;

namespace mirel {

class ServiceContext;

/// What a creator function is given.
struct ServiceSetup {
    ServiceContext& context;  ///< where it registers the handlers of its service
    CommsChannelIfc* channel; ///< the channel that the service will be called on
    std::string interface;    ///< the interfaces that the service is to offer
};

/// The function in a service library that makes the service: `extern "C" Executable* name(
/// mirel::ServiceSetup&)`. The context owns what it returns. What it throws ends the executor.
using ServiceCreator = Executable*(ServiceSetup&);

/// Our framework's context: knows the invokers, loads and owns the services.
/// Any thread may call. Must outlive the executors that use it and their workers.
class ServiceContext : public FrameworkContext {
public:
    ServiceContext();

    /// Destroys the services, then the invokers. Libraries stay loaded until the process ends.
    ~ServiceContext() override;

    /// Registers the invoker of an interface and protocol. `MirelException` when there is one. It
    /// need not think of requests that have become another process's: they do not reach it.
    template <typename InvokerType>
    void addInvoker(const std::string& interface, const std::string& protocol,
                    std::unique_ptr<InvokerType> invoker) {
        add(interface, protocol,
            std::make_unique<ClaimingInvoker<InvokerType>>(std::move(invoker)));
    }

    /// Registers a handler that takes the service and the request's data, and returns the answer;
    /// see `HandlerInvoker`. For example:
    ///
    ///     context.addHandler<Clock>("Clock", "text", [](Clock& clock, std::string_view) {
    ///         return clock.now();
    ///     });
    template <typename ServiceType, typename Handler>
    void addHandler(const std::string& interface, const std::string& protocol, Handler handler) {
        addInvoker(interface, protocol,
                   std::make_unique<HandlerInvoker<ServiceType, Handler>>(std::move(handler)));
    }

    /// Why a service that offers `serviceInterface` has no response to a request for this interface
    /// and protocol, and which there are: what the caller of such a request is to be told.
    std::string whyUnserved(const std::string& serviceInterface, const std::string& interface,
                            const std::string& protocol);

    /// Whether a service has been made.
    bool hasService();

    Invoker* findInvoker(const std::string& interface, const std::string& protocol) override;

    /// Loads the library and calls the creator. Null, after a log line at level 2 that says what is
    /// missing, when there is no such library or creator, or when the creator returns null.
    Executable* createService(ServiceExecutor* executor, std::string libraryName,
                              std::string creatorName, CommsChannelIfc* channel,
                              std::string serviceInterface) override;

    /// Loads the library and looks the creator up, without calling it. `MirelException` that says
    /// what is missing.
    static ServiceCreator* loadCreator(const std::string& libraryName,
                                       const std::string& creatorName);

private:
    void add(const std::string& interface, const std::string& protocol,
             std::unique_ptr<Invoker> invoker);

    Mutex m_mutex;
    /// By interface, then by protocol.
    std::map<std::string, std::map<std::string, std::unique_ptr<Invoker>>>
        m_invokers MIREL_GUARDED_BY(m_mutex);
    std::vector<std::unique_ptr<Executable>> m_services MIREL_GUARDED_BY(m_mutex);
};

} // namespace mirel
