#include "framework/InvokeInterceptorContext.h"

#include <algorithm>

InvokeInterceptorContext::InvokeInterceptorContext(InterceptionPoint point,
                                                   CommsChannelDataContainerMessage& msg)
    : m_point(point),
      m_message(&msg),
      m_dataLength(0),
      m_response(nullptr) {}

InvokeInterceptorContext::InvokeInterceptorContext(InterceptionPoint point, int dataLength,
                                                   InvokerResponse* response)
    : m_point(point),
      m_message(nullptr),
      m_dataLength(dataLength),
      m_response(response) {}

InvokeInterceptorContext::InvokeInterceptorContext(const InvokeInterceptorContext&) = default;
InvokeInterceptorContext&
InvokeInterceptorContext::operator=(const InvokeInterceptorContext&) = default;
InvokeInterceptorContext::~InvokeInterceptorContext() = default;

void InvokeInterceptorContext::setInterceptionPoint(InterceptionPoint point) { m_point = point; }

InvokeInterceptorContext::InterceptionPoint InvokeInterceptorContext::interceptionPoint() const {
    return m_point;
}

CommsChannelDataContainerMessage* InvokeInterceptorContext::message() const { return m_message; }

int InvokeInterceptorContext::dataLength() const { return m_dataLength; }

InvokerResponse* InvokeInterceptorContext::response() const { return m_response; }

std::any& InvokeInterceptorContext::note(const void* owner) {
    const auto found = std::find_if(m_notes.begin(), m_notes.end(),
                                    [owner](const auto& note) { return note.first == owner; });
    return found != m_notes.end() ? found->second : m_notes.emplace_back(owner, std::any{}).second;
}
