#pragma once

#include <string>

class CommsChannelIfc;
class Executable;
class Invoker;
class ServiceExecutor;

/// What the executor asks of the process around it. Called by the threads of all executors.
class FrameworkContext {
public:
    /// The handler for an interface and a protocol, or null. It stays the context's.
    virtual Invoker* findInvoker(const std::string& interface, const std::string& protocol) = 0;

    /// Creates the service object, or returns null. The executor does not own what it gets.
    virtual Executable* createService(ServiceExecutor* executor, std::string libraryName,
                                      std::string creatorName, CommsChannelIfc* channel,
                                      std::string serviceInterface) = 0;

    virtual ~FrameworkContext() = default;
};
