#include "runtime/values/ServiceContext.h"

#include "framework/Logging.h"
#include "framework/MirelException.h"
#include "runtime/values/ForeignCode.h"

#include <dlfcn.h>

namespace mirel {

namespace {

std::string loaderError() {
    const char* const text = dlerror();
    return text ? text : "the loader gives no reason";
}

void logError(const std::string& text) {
    logAppUni("ServiceContext", __FILE__, 2, __LINE__, "%s", text.c_str());
}

} // namespace

ServiceContext::ServiceContext() = default;

ServiceContext::~ServiceContext() { m_services.clear(); }

void ServiceContext::add(const std::string& interface, const std::string& protocol,
                         std::unique_ptr<Invoker> invoker) {
    const Lock lock(m_mutex);
    if (!m_invokers[interface].try_emplace(protocol, std::move(invoker)).second)
        throw MirelException("there is a handler for interface \"" + interface +
                                 "\" and protocol \"" + protocol + "\" already",
                             __FILE__, __LINE__);
}

Invoker* ServiceContext::findInvoker(const std::string& interface, const std::string& protocol) {
    const Lock lock(m_mutex);
    const auto ofInterface = m_invokers.find(interface);
    if (ofInterface == m_invokers.end())
        return nullptr;
    const auto found = ofInterface->second.find(protocol);
    return found != ofInterface->second.end() ? found->second.get() : nullptr;
}

std::string ServiceContext::whyUnserved(const std::string& serviceInterface,
                                        const std::string& interface, const std::string& protocol) {
    const auto isOffered = [&serviceInterface](const std::string& name) {
        return serviceInterface.find(name) != std::string::npos;
    };
    const Lock lock(m_mutex);
    const auto ofInterface = m_invokers.find(interface);
    if (!isOffered(interface) || ofInterface == m_invokers.end()) {
        std::string there;
        for (const auto& [name, invokers] : m_invokers)
            if (isOffered(name))
                there += (there.empty() ? "" : ", ") + name;
        return "the service has no interface \"" + interface + "\"; it has " +
               (there.empty() ? "none" : there);
    }
    if (ofInterface->second.contains(protocol))
        return "the service failed before the request could run";
    std::string there;
    for (const auto& [name, invoker] : ofInterface->second)
        there += (there.empty() ? "" : ", ") + name;
    return "interface \"" + interface + "\" has no protocol \"" + protocol + "\"; it has " + there;
}

bool ServiceContext::hasService() {
    const Lock lock(m_mutex);
    return !m_services.empty();
}

Executable* ServiceContext::createService(ServiceExecutor*, std::string libraryName,
                                          std::string creatorName, CommsChannelIfc* channel,
                                          std::string serviceInterface) {
    std::unique_ptr<Executable> service;
    ServiceSetup setup{*this, channel, std::move(serviceInterface)};
    // The executor holds a lock, and loading a library may do as much as the creator.
    callForeignCode([&] {
        ServiceCreator* creator = nullptr;
        try {
            creator = loadCreator(libraryName, creatorName);
        } catch (const MirelException& failure) {
            logError(failure.message());
            return;
        }
        // Called without our lock: the creator registers its handlers.
        service.reset(creator(setup));
        if (!service)
            logError("creator \"" + creatorName + "\" of service library \"" + libraryName +
                     "\" returned no service");
    });
    if (!service)
        return nullptr;
    const Lock lock(m_mutex);
    return m_services.emplace_back(std::move(service)).get();
}

ServiceCreator* ServiceContext::loadCreator(const std::string& libraryName,
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
