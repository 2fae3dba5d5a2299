#pragma once

#include "framework/Invoker.h"
#include "framework/InvokerResponse.h"

#include <memory>
#include <utility>

namespace mirel {

/// Has a request claimed before another invoker runs it. The context puts one around each invoker,
/// so that none has to think of it. The type is a parameter for the sake of failure reports, which
/// tell an invoker's class.
template <typename InvokerType>
class ClaimingInvoker : public Invoker {
public:
    explicit ClaimingInvoker(std::unique_ptr<InvokerType> invoker)
        : m_invoker(std::move(invoker)) {}

    void handleMessage(Executable* service, const char* data, int length,
                       InvokerResponse* response) override {
        if (response->claim())
            m_invoker->handleMessage(service, data, length, response);
        else
            delete response;
    }

    void initialise(FrameworkContext* context) override { m_invoker->initialise(context); }

private:
    const std::unique_ptr<InvokerType> m_invoker;
};

} // namespace mirel
