#pragma once

class Executable;
class FrameworkContext;
class InvokerResponse;

/// The handler of one interface and protocol of a service. Several threads may be inside one object
/// at the same time, for requests of different source channels.
class Invoker {
public:
    /// Runs one request on the calling thread. `data` is `length` bytes followed by a NUL byte and
    /// lives as long as the call; `service` may be null.
    ///
    /// On a normal return the invoker has taken over `response`: it has answered and deleted it, or
    /// will do so later. When this throws, the caller deletes `response`.
    virtual void handleMessage(Executable* service, const char* data, int length,
                               InvokerResponse* response) = 0;

    /// Called on the executor's thread before each request. May throw; that ends the executor.
    virtual void initialise(FrameworkContext* context) = 0;

    virtual ~Invoker() = default;
};
