#pragma once

#include "framework/Executable.h"
#include "framework/Invoker.h"
#include "framework/InvokerResponse.h"
#include "framework/MirelException.h"
#include "runtime/values/BusinessFailure.h"

#include <cstddef>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace mirel {

/// An invoker made of a function: `handler(ServiceType&, std::string_view data)` returns the answer
/// as something a `std::string` can be made from. What it throws is what the caller gets as a
/// failure, and is reported as any failure of service code, unless it is a `BusinessFailure`. The
/// handler is called by several threads at once.
template <typename ServiceType, typename Handler>
class HandlerInvoker : public Invoker {
public:
    explicit HandlerInvoker(Handler handler) : m_handler(std::move(handler)) {}

    void handleMessage(Executable* service, const char* data, int length,
                       InvokerResponse* response) override {
        try {
            auto* const target = dynamic_cast<ServiceType*>(service);
            if (!target)
                throw MirelException("the service object is missing or of another class", __FILE__,
                                     __LINE__);
            response->answer(
                m_handler(*target, std::string_view(data, static_cast<std::size_t>(length))));
        } catch (const BusinessFailure& failure) {
            response->answerError(failure.what());
        } catch (const std::exception& failure) {
            // Answered here, where the text is known; the response is still the caller's to delete.
            response->answerError(failure.what());
            throw;
        }
        // A normal return means that the response has been taken over.
        delete response;
    }

    void initialise(FrameworkContext*) override {}

private:
    const Handler m_handler;
};

} // namespace mirel
