#include "framework/InvokerResponse.h"

#include "runtime/values/AnsweringChannel.h"
#include "runtime/values/ThreadRefused.h"

#include <cxxabi.h>
#include <memory>
#include <utility>

namespace {

constexpr const char* kUnanswered = "the request was not answered: it failed or was dropped";
constexpr const char* kNoThread =
    "the request has not run, because the system is short of threads; it can be sent again";

struct State {
    std::shared_ptr<mirel::AnswerSink> sink; ///< null: there is no way back
    bool answered;
    bool mayHaveRun; ///< claimed
    long requestId;
    std::string sourceChannel;
    std::string callbackChannel;

    mirel::Answer make(bool succeeded, std::string&& data) const {
        return {succeeded, requestId, sourceChannel, callbackChannel, std::move(data)};
    }

    bool send(bool succeeded, std::string&& data) {
        if (answered)
            return false;
        if (sink)
            sink->answer(make(succeeded, std::move(data)));
        answered = true; // not before: an answer that could not be given leaves room for a failure
        return true;
    }
};

} // namespace

InvokerResponse::InvokerResponse(CommsChannelIfc* channel, std::string& sourceChannel,
                                 std::string& callbackChannel, std::string&, std::string&,
                                 long requestId, std::string&, std::string&, int) {
    const State& state = m_opaque.make<State>(mirel::AnsweringChannel::sinkOf(channel), false,
                                              false, requestId, sourceChannel, callbackChannel);
    // Nothing may fail from here on: who has accepted a request owes it an answer.
    if (state.sink)
        state.sink->accept(requestId, callbackChannel);
}

InvokerResponse::~InvokerResponse() noexcept(false) {
    if (answered() || !m_opaque.as<State>().sink) {
        m_opaque.destroy<State>();
        return;
    }
    // Moved out, so that it goes whichever way this function is left.
    State state = std::move(m_opaque.as<State>());
    m_opaque.destroy<State>();
    const bool refused = mirel::ThreadRefused::isUnderWay() && !state.mayHaveRun;
    try {
        state.sink->abandon({false, state.requestId, std::move(state.sourceChannel),
                             std::move(state.callbackChannel), refused ? kNoThread : kUnanswered});
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        // A response is destroyed where nobody expects a failure, and the way back has failed.
    }
}

bool InvokerResponse::answer(std::string data) {
    return m_opaque.as<State>().send(true, std::move(data));
}

bool InvokerResponse::answerError(std::string text) {
    return m_opaque.as<State>().send(false, std::move(text));
}

bool InvokerResponse::answered() const { return m_opaque.as<State>().answered; }

bool InvokerResponse::claim() {
    State& state = m_opaque.as<State>();
    if (state.answered)
        return false;
    if (!state.sink || state.sink->claim(state.callbackChannel))
        state.mayHaveRun = true;
    else
        state.answered = true;
    return state.mayHaveRun;
}
