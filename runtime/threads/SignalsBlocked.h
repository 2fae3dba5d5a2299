#pragma once

#include <csignal>
#include <pthread.h>

namespace mirel {

/// While it lives, its thread takes no signals, nor does a thread that it makes: signals are for
/// the program's own threads.
class SignalsBlocked {
public:
    SignalsBlocked() noexcept {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_former);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_former, nullptr); }

    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t m_former{};
};

} // namespace mirel
