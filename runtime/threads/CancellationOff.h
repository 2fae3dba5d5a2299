#pragma once

#include <pthread.h>

namespace mirel {

/// While it lives, its thread is not cancelled: for what must not be left half done, or cannot be
/// unwound through. A cancellation that is asked for meanwhile strikes afterwards.
class CancellationOff {
public:
    CancellationOff() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_former); }
    ~CancellationOff() { pthread_setcancelstate(m_former, nullptr); }

    CancellationOff(const CancellationOff&) = delete;
    CancellationOff& operator=(const CancellationOff&) = delete;

private:
    int m_former = PTHREAD_CANCEL_ENABLE;
};

} // namespace mirel
