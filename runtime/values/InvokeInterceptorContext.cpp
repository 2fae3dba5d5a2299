#include "framework/InvokeInterceptorContext.h"

#include <algorithm>
#include <utility>
#include <vector>

using Context = InvokeInterceptorContext;

namespace {

struct State {
    Context::InterceptionPoint point;
    CommsChannelDataContainerMessage* message;
    int dataLength;
    InvokerResponse* response;
    std::vector<std::pair<const void*, std::any>> notes{}; ///< by their owners; few
};

} // namespace

Context::InvokeInterceptorContext(InterceptionPoint point, CommsChannelDataContainerMessage& msg) {
    m_opaque.make<State>(point, &msg, 0, nullptr);
}

Context::InvokeInterceptorContext(InterceptionPoint point, int dataLength,
                                  InvokerResponse* response) {
    m_opaque.make<State>(point, nullptr, dataLength, response);
}

Context::InvokeInterceptorContext(const Context& other) : InterceptionContext(other) {
    m_opaque.make<State>(other.m_opaque.as<State>());
}

Context& Context::operator=(const Context& other) {
    m_opaque.as<State>() = other.m_opaque.as<State>();
    return *this;
}

Context::~InvokeInterceptorContext() { m_opaque.destroy<State>(); }

void Context::setInterceptionPoint(InterceptionPoint point) { m_opaque.as<State>().point = point; }

Context::InterceptionPoint Context::interceptionPoint() const { return m_opaque.as<State>().point; }

CommsChannelDataContainerMessage* Context::message() const { return m_opaque.as<State>().message; }
int Context::dataLength() const { return m_opaque.as<State>().dataLength; }
InvokerResponse* Context::response() const { return m_opaque.as<State>().response; }

std::any& Context::note(const void* owner) {
    auto& notes = m_opaque.as<State>().notes;
    const auto found = std::find_if(notes.begin(), notes.end(),
                                    [owner](const auto& note) { return note.first == owner; });
    return found != notes.end() ? found->second : notes.emplace_back(owner, std::any{}).second;
}
