#include "standalone/StandaloneContext.h"

#include "framework/Logging.h"
#include "framework/MirelException.h"
#include "standalone/PendingWakeUps.h"

#include <dlfcn.h>

namespace mirel {

namespace {

std::string loaderError() {
    const char* const text = dlerror();
    return text ? text : "the loader gives no reason";
}

void logError(const std::string& text) {
    logAppUni("StandaloneContext", __FILE__, 2, __LINE__, "%s", text.c_str());
}

} // namespace

StandaloneContext::StandaloneContext() = default;

StandaloneContext::~StandaloneContext() { m_services.clear(); }

void StandaloneContext::addInvoker(const std::string& interface, const std::string& protocol,
                                   std::unique_ptr<Invoker> invoker) {
    const std::lock_guard lock(m_mutex);
    if (!m_invokers[interface].try_emplace(protocol, std::move(invoker)).second)
        throw MirelException("there is a handler for interface \"" + interface +
                                 "\" and protocol \"" + protocol + "\" already",
                             __FILE__, __LINE__);
}

Invoker* StandaloneContext::findInvoker(const std::string& interface, const std::string& protocol) {
    const std::lock_guard lock(m_mutex);
    const auto ofInterface = m_invokers.find(interface);
    if (ofInterface == m_invokers.end())
        return nullptr;
    const auto found = ofInterface->second.find(protocol);
    return found != ofInterface->second.end() ? found->second.get() : nullptr;
}

Executable* StandaloneContext::createService(ServiceExecutor*, std::string libraryName,
                                             std::string creatorName, CommsChannelIfc* channel,
                                             std::string serviceInterface) {
    const WakeUpsAtOnce wakeUpsAtOnce; // the executor holds a lock, and the service may do anything
    ServiceCreator* creator = nullptr;
    try {
        creator = loadCreator(libraryName, creatorName);
    } catch (const MirelException& failure) {
        logError(failure.message());
        return nullptr;
    }

    // Called without the lock: the creator registers its handlers.
    ServiceSetup setup{*this, channel, std::move(serviceInterface)};
    std::unique_ptr<Executable> service(creator(setup));
    if (!service) {
        logError("creator \"" + creatorName + "\" of service library \"" + libraryName +
                 "\" returned no service");
        return nullptr;
    }
    const std::lock_guard lock(m_mutex);
    return m_services.emplace_back(std::move(service)).get();
}

ServiceCreator* StandaloneContext::loadCreator(const std::string& libraryName,
                                               const std::string& creatorName) {
    // Never unloaded: services leave behind objects whose code is in the library, such as answers
    // under way and exceptions.
    void* const library = dlopen(libraryName.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library)
        throw MirelException("service library \"" + libraryName +
                                 "\" cannot be loaded: " + loaderError(),
                             __FILE__, __LINE__);
    void* const creator = dlsym(library, creatorName.c_str());
    if (!creator)
        throw MirelException("service library \"" + libraryName + "\" has no creator \"" +
                                 creatorName + "\": " + loaderError(),
                             __FILE__, __LINE__);
    return reinterpret_cast<ServiceCreator*>(creator);
}

} // namespace mirel
