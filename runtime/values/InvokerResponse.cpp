#include "framework/InvokerResponse.h"

#include "framework/CommsChannelIfc.h"
#include "runtime/values/AnswerSink.h"

#include <cxxabi.h>
#include <utility>

InvokerResponse::InvokerResponse(CommsChannelIfc* channel, std::string& sourceChannel,
                                 std::string& callbackChannel, std::string&, std::string&,
                                 long requestId, std::string&, std::string&, int)
    : m_sink(channel ? channel->answerSink() : nullptr),
      m_requestId(requestId),
      m_sourceChannel(sourceChannel),
      m_callbackChannel(callbackChannel) {}

InvokerResponse::~InvokerResponse() noexcept(false) {
    if (m_answered)
        return;
    try {
        if (m_sink)
            m_sink->unanswered({false, m_requestId, m_sourceChannel, m_callbackChannel,
                                "the request was not answered: it failed or was dropped"});
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        // A response is destroyed where nobody expects a failure, and the way back has failed.
    }
}

bool InvokerResponse::answer(std::string data) { return send(true, std::move(data)); }

bool InvokerResponse::answerError(std::string text) { return send(false, std::move(text)); }

bool InvokerResponse::answered() const { return m_answered; }

bool InvokerResponse::mayRun() {
    if (!m_sink || m_sink->mayRun(m_callbackChannel))
        return true;
    m_answered = true;
    return false;
}

bool InvokerResponse::send(bool succeeded, std::string data) {
    if (m_answered)
        return false;
    if (m_sink)
        m_sink->answer(
            {succeeded, m_requestId, m_sourceChannel, m_callbackChannel, std::move(data)});
    m_answered = true; // not before: an answer that could not be given leaves room for a failure
    return true;
}
