#pragma once

#include "framework/Opaque.h"

#include <string>

class CommsChannelIfc;

/// The way back to the caller of one request. The first of `answer`, `answerError` and destruction
/// decides what the caller gets; a response destroyed unanswered answers with a failure, so that no
/// caller waits for a request that nobody will run.
///
/// May be used by one thread at a time, at any time, also after its channel is gone.
class InvokerResponse {
public:
    /// The strings are copied. `channel` is used in here only and may be null. The last argument
    /// is not used.
    InvokerResponse(CommsChannelIfc* channel, std::string& sourceChannel,
                    std::string& callbackChannel, std::string& protocol, std::string& interface,
                    long requestId, std::string& proxyCallMode, std::string& remoteContext, int);

    InvokerResponse(const InvokerResponse&) = delete;
    InvokerResponse& operator=(const InvokerResponse&) = delete;

    /// A derived response's destructor may throw; the library survives that.
    virtual ~InvokerResponse() noexcept(false);

    // The library does not use these. The first three are for service code.

    /// Answers with data. False, without effect, when the request has been answered already.
    bool answer(std::string data);

    /// Answers with a failure that `text` explains. False as above.
    bool answerError(std::string text);

    bool answered() const;

    /// For who calls the invoker, before it runs the request. False when the request has become
    /// another process's: it must not run, and counts as answered.
    bool claim();

private:
    Opaque<96> m_opaque;
};
